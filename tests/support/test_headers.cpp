// Exists so that the headers that the tests share have a program to be precompiled for.

int main() {
    return 0;
}
