// osdctl's requests that show and hide pictures.
#pragma once

#include "tools/options.h"

// Adds image, image-hide and guide; as AddRequests.
void AddPictureRequests(CLI::App& io_app, T_Run& io_run);
