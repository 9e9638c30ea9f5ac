#pragma once

#include <memory>

#include "platform/Machine.h"
#include "ui/Desktop.h"

namespace corvana {

/// Opens the desktop's file beside the program. Null without a display, or when the file cannot be
/// opened, which `log` is told; the agent then goes on without windows.
std::unique_ptr<Desktop> openDesktop(int& count, char** arguments, SystemLog& log);

}  // namespace corvana
