// What a command carries by address is the renderer's as soon as it has been popped; here is the one
// place where it is taken over, and freed.
#pragma once

#include <memory>
#include <variant>

#include "common/osd/commands.h"
#include "common/osd/disp_record.h"
#include "common/osd/pictures/worker.h"

using T_Cargo = std::variant<std::monostate, std::unique_ptr<T_DispRecord>, std::unique_ptr<char[]>,
                             std::unique_ptr<T_PictureResult>>;

// Takes over what i_msg carries, which must have come out of the renderer's inbox: once. Handlers
// reach it through the message for as long as the result lives.
[[nodiscard]] T_Cargo TakeOver(const T_ModuleMsg& i_msg);
