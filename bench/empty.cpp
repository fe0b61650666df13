// Measures what it costs to start any program that is linked with the daemon's shared libraries.
int main() {}
