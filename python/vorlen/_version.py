"""Version of the package: that of the library, as the project() line of CMakeLists.txt gives it. A test compares them."""

__version__ = "1.0.0"
