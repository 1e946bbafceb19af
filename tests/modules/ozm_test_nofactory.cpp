// A shared object that loads but does not export a module factory.
extern "C" __attribute__((visibility("default"))) int OzmTestNoFactory() { return 0; }
