#pragma once
// The scope of the module's tests: InitDataSetModule registers the module's types in it
// once per program (a second scope would get nothing).

#include "host/local_source.h"

namespace module_tests {

CLocalSource& Scope();

}  // namespace module_tests
