// A tiny library for the loader tests.
extern "C" __attribute__((visibility("default"))) int ZentOsTestAnswer()
{
    return 42;
}
