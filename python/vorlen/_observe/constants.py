"""Physical constants of light, from the exact values of the SI."""

HC = 1239.8419843320026  # Planck's constant times the speed of light, eV nm
HC_ANGSTROM = 10.0 * HC  # eV angstrom
