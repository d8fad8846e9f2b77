#include "quillon/graphicdefines.h"

#include "moc_graphicdefines.cpp"
