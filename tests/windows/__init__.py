"""Proves the Windows pinned root over a volume in memory that answers as its kernel would."""
