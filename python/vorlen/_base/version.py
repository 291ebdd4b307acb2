"""Version of the package: that of the library in CMakeLists.txt. A test compares them."""

__version__ = "1.0.0"
