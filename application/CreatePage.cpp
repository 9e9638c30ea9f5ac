#include "application/CreatePage.h"

namespace corvana {

CreatePage::CreatePage(Household& household, Navigator& navigator) : Page(household, navigator) {}

void CreatePage::begin() {}

bool CreatePage::change(std::int64_t reference) {
  return household().actions().actionForReference(reference) != nullptr;
}

void CreatePage::refresh(ChangeSet /*changed*/) {}

}  // namespace corvana
