// The phonebook engine's record of the card. Written only on the service
// thread; zero at load.
#include "zpt_ui_pb_func.h"

pb_sim_module_s g_sim_module;
storage_type_t g_storage_type = STORAGE_TYPE_SIM;
