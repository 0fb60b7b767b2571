#include "module_test_scope.h"

#include "module/module_entry.h"

namespace module_tests {

CLocalSource& Scope() {
    static CLocalSource* scope = [] {
        auto* s = new CLocalSource("module-tests", GetRootLocal());
        InitDataSetModule(s, 16, 256, 1, 2);
        return s;
    }();
    return *scope;
}

}  // namespace module_tests
