// What starting and ending a process costs here, built with the flags that kivctl is built with.
int main() {
    return 0;
}
