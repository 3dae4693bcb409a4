// A target needs a source; the precompiled headers are what it is for.
