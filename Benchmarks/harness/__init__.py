"""What scripts/bench is made of: samples, ratios, goals, curves, and how they are shown."""
