// Message catalogues and their code sets.
#include "qlog/qlog.h"

extern "C" __attribute__((visibility("default"))) void zis_set_dir(const char*) {}
