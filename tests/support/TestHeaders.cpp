// Precompiled headers need a source to be compiled with.
