"""What the suites share: exact failures, descriptor counts, distributions on disk."""
