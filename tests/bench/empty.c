// The yardstick of the measurements: a program that does nothing.
int main(void) {
    return 0;
}
