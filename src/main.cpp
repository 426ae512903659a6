// Placeholder entry point until the run driver lands.
int main() { return 0; }
