// Nothing of its own: it carries the precompiled headers of all tests.
int main()
{
    return 0;
}
