#pragma once

#include "platform/Machine.h"

namespace corvana {

/// The machine's system log, under "corvana9".
class Syslog final : public SystemLog {
 public:
  Syslog();
  ~Syslog() override;
  void write(const std::string& line) override;
};

/// The standard error stream, with the time of day before each line. Thread: any.
class StandardErrorLog final : public SystemLog {
 public:
  void write(const std::string& line) override;
};

}  // namespace corvana
