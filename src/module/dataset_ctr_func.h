#pragma once
// CDataSetCtrFunc: the script step "dataset", which gives a command to a dataset item
// of the script's context.
//
//   <dataset id="wave1" ctr="setSizeOffsetRange" value="0,10"/>
//
// Attributes: "id" names the dataset item (a missing item ends the step with false),
// "ctr" the command, "value" its argument ("args" is read when "value" is empty).
// Argument lists are split at "," into elements, each "name:value" or a single value;
// an element's value is the current value of the context item it names, else a number
// (0 when it is neither).
//
// Commands, named without regard to case: "setSizeAxis", "setDataAxis" (the item named by value becomes that child),
// "setDataOffsetRange", "setSizeOffsetRange", "setDataScaleRange", "setSizeScaleRange"
// (two values to the axis), "setSizeOffsetRangeStr", "setDataOffsetRangeStr" (the
// value item named holds "a b"; the data axis takes them in the opposite order),
// "setParent" (name:item pairs become children of the dataset), "SetEstDataSize",
// "SetDataState", "ResetSizeAxisRange", "setCalcRange", "SetSystemBaseTime"; any other
// command goes to the dataset's OnCMD with the context item named by value.

#include "host/func_item.h"

#include <string>
#include <utility>
#include <vector>

class IBaseCtr;

class CDataSetCtrFunc final : public ConditionFunc {
public:
    bool Run(IFuncRunner* runner) override;

    // One element of an argument list: its name (empty for a single value) and value text.
    using Element = std::pair<std::string, std::string>;
    static std::vector<Element> SplitList(const std::string& text);
    // The element's value: the named context item's value, else the text as a number, else 0.
    static double ValueOf(IFuncRunner* runner, const std::string& text);
    // The start and end of "setCalcRange": up to two ":"-separated "name=value" pieces,
    // the text right of "=" taken as ValueOf; a piece without a value leaves 0.
    static std::pair<double, double> CalcRangeOf(IFuncRunner* runner, const std::string& text);

private:
    bool Command(IFuncRunner* runner, IBaseCtr* dataset, const std::string& command, const std::string& value);
};

// Registers the step "dataset" with the root function manager.
bool RegisterDataSetCtrFunc();
