// Owns the headers that the tests share; never run.
int main() {}
