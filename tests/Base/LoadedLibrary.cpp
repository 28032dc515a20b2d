// A library to be loaded.
extern "C" __attribute__((visibility("default"))) int BaseTestsAnswer() {
    return 42;
}
