// What any program costs that is linked to the daemon's shared libraries.
int main() {}
