#include "tests/desktop/FakePanel.h"

#include "moc_FakePanel.cpp"
