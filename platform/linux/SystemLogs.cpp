#include "platform/linux/SystemLogs.h"

#include <syslog.h>
#include <time.h>

#include <array>
#include <cstdio>

namespace corvana {

Syslog::Syslog() { openlog("corvana9", LOG_PID, LOG_USER); }

Syslog::~Syslog() { closelog(); }

void Syslog::write(const std::string& line) { syslog(LOG_NOTICE, "%s", line.c_str()); }

void StandardErrorLog::write(const std::string& line) {
  const time_t now = time(nullptr);
  tm fields{};
  localtime_r(&now, &fields);
  std::array<char, 16> clock{};
  strftime(clock.data(), clock.size(), "%H:%M:%S", &fields);
  // One call, so that lines of several threads do not mix.
  std::fprintf(stderr, "%s %s\n", clock.data(), line.c_str());
}

}  // namespace corvana
