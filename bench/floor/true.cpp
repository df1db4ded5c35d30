// The cost of starting and ending a process on this machine, built with kivctl's flags.
int main() {
    return 0;
}
