"""The whole-program benchmarks behind scripts/bench."""
