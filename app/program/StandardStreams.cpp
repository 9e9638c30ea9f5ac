#include "app/program/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace corvana {

void openMissingStandardStreams() {
  int descriptor = -1;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) close(descriptor);
}

}  // namespace corvana
