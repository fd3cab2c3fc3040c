#include "orvexa/controller/pick_mode_state.h"
