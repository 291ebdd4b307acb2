"""Pages about runs: reports and comparisons. The layouts are in assets."""
