/** Puts the MQTT side's configuration files into the configuration folder of the tests. */
#pragma once

#include "fakes/config_folder.h"
