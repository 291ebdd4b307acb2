"""What all parts of the package use: arguments, files, interrupts, and where the tool and the library are."""
