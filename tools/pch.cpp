// The translation unit that the shared precompiled header is made for.
