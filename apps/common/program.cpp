#include "common/program.h"

const char* WavestoreVersionText() { return "wavestore " WAVESTORE_VERSION; }
