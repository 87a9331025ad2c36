// A library to load at run time.
extern "C" {
__attribute__((visibility("default"))) int loader_plugin_answer() { return 42; }
__attribute__((visibility("default"))) int loader_plugin_value = 7;
}
