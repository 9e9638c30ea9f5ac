#include "desktop/BusSignal.h"

#include "moc_BusSignal.cpp"
