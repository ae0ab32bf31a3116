"""The long run behind scripts/soak. Starts the programs with what bench/harness has for that."""
