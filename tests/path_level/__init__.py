"""The suites of the path-level functions: one-shot calls, transfers, whole paths, metadata."""
