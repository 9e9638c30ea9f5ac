#include "desktop/WindowFactory.h"

#include "desktop/StatusWindow.h"

namespace corvana {

namespace {

template <class Made>
std::unique_ptr<AgentWindow> make(const UserInterfaceSources& sources) {
  return std::make_unique<Made>(sources);
}

struct Row {
  Window which;
  std::unique_ptr<AgentWindow> (*maker)(const UserInterfaceSources& sources);
};

constexpr Row kRows[] = {
    {Window::status, &make<StatusWindow>},
};

}  // namespace

std::unique_ptr<AgentWindow> makeWindow(Window which, const UserInterfaceSources& sources) {
  for (const Row& row : kRows) {
    if (row.which == which) return row.maker(sources);
  }
  return nullptr;
}

}  // namespace corvana
