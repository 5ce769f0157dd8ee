#include "serial/iplatport.h"

IPlatPort::~IPlatPort() {}
