"""Fits of model constants and recipe values to measured layers."""
