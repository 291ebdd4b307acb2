"""Recipes: reading, changing and building them, checking them with the tool."""
