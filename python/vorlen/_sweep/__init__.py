"""Sweeps: the plan of rows, the processes and engines that run them, the folder that keeps them."""
