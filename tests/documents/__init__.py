"""The suite that holds the document validators: strict JSON, signals index, relative paths."""
