// The translation unit of vorlen_test_headers: its precompiled headers are what counts.
