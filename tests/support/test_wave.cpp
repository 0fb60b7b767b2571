#include "support/test_wave.h"

#include "module/type_registration.h"
#include "host/item_binding.h"

namespace testing_support {

CLocalSource& ModuleScope() {
    static CLocalSource* scope = [] {
        auto* s = new CLocalSource("test-module", GetRootLocal());
        RegisterModuleTypes(s);
        RegisterClassType<BasicWaveDataSet<uint8_t>>("TEST_WAVE_U8", s);
        return s;
    }();
    return *scope;
}

}  // namespace testing_support
