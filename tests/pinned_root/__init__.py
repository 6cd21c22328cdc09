"""The suites of the pinned root: pinning, proofs, contained reads, and what hostile hosts do."""
