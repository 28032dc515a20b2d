// A library that needs a function which nobody has.
extern "C" int BaseTestsNobodyHasThis();
extern "C" __attribute__((visibility("default"))) int BaseTestsAnswer() {
    return BaseTestsNobodyHasThis();
}
