// An outside program built against the installed package.
#include <wavestore/wavestore.h>

#include <cstdio>

int main() {
    ValidDataArea area{};
    area.wave_end_pos = 9;
    std::unique_ptr<IBaseCtr> ratio(Eval("DOUBLE = 2.5", GetRootLocal()));
    if (!ratio || ratio->GetValue().ToDouble() != 2.5 || sizeof(area) != 48) return 1;
    std::puts("consumer: ok");
    return 0;
}
