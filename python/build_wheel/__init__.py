"""Builds the wheel and the source archive of the package: what pip calls, and what setup.py needs."""
