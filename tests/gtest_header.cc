// The source of a target that is there for its precompiled header.
