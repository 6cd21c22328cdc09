"""The suite that holds the module's names, classes, load and argument shapes."""
