"""What is compared everywhere: the names in the results, and in the tables and plots."""

MAIN_PEERS = {
    "library": "library",
    "bare": "bare calls",
    "sqlite_each": "SQLite each",
    "sqlite_all": "one SQLite",
}
