// The smallest Windows program, for the tests that sign executables.
int main(void)
{
    return 0;
}
