// Carries the headers that the unit tests share (CMakeLists.txt); never linked.
int main() {}
