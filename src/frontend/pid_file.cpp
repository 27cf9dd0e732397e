// Filled in by the front end's own change.
