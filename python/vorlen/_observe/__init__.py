"""What can be measured on a wafer, computed from a run: curves, and the slices of the finished structure they need."""
