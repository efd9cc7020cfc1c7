// First-failure data capture.
extern "C" __attribute__((visibility("default"))) int qffdci_version() { return 1; }
