"""A run: simulating, its result file, layers and interfaces, what grew, its figures."""
