"""From targets to recipes: designs, process windows and maps."""
