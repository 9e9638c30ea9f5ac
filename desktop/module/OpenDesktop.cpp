#include "desktop/QtDesktop.h"

extern "C" __attribute__((visibility("default"))) corvana::Desktop* corvanaOpenDesktop(
    int& count, char** arguments, std::string& reason) {
  return corvana::QtDesktop::open(count, arguments, reason).release();
}
