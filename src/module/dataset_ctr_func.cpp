#include "module/dataset_ctr_func.h"

#include "dataset/axis.h"
#include "dataset/math_dataset_interface.h"
#include "host/base_ctr.h"
#include "host/string_utils.h"
#include "host/value_item.h"
#include "reader/basic_wave_reader.h"

#include <cmath>
#include <memory>
#include <sstream>

namespace {

IDatasetAxis* AxisOf(IBaseCtr* dataset, const char* child) {
    IBaseCtr* axis = dataset->GetChildItem(child);
    return axis ? QueryInterface<IDatasetAxis>(axis).get() : nullptr;
}

// The first two values of a list; missing ones are 0.
std::pair<double, double> TwoValues(IFuncRunner* runner, const std::string& text) {
    double values[2] = {0.0, 0.0};
    std::size_t n = 0;
    for (const auto& element : CDataSetCtrFunc::SplitList(text)) {
        if (n == 2) break;
        values[n++] = CDataSetCtrFunc::ValueOf(runner, element.second);
    }
    return {values[0], values[1]};
}

// The value item named by text holds "a b": the two numbers, false if there aren't two.
bool PairFromText(IFuncRunner* runner, const std::string& name, double& a, double& b) {
    IBaseCtr* item = runner->FindItem(name);
    if (item == nullptr) return false;
    std::istringstream in(item->GetValue().ToString());
    return static_cast<bool>(in >> a >> b);
}

// "setCalcRange": a range strictly inside a non-empty range calculated last is there
// already; any other range clears the dataset and is calculated.
bool CalcRange(IFuncRunner* runner, IBaseCtr* dataset, const std::string& value) {
    Ctr<IMathDataSet> math = QueryInterface<IMathDataSet>(dataset);
    if (!math) return false;
    if (value.empty()) return true;
    const auto [start, end] = CDataSetCtrFunc::CalcRangeOf(runner, value);
    CalcRangeUnlessInsideLast(dataset, *math, start, end);
    return true;
}

bool ResetSizeAxisRange(IFuncRunner* runner, IBaseCtr* dataset, const std::string& value) {
    IDatasetAxis* axis = AxisOf(dataset, "sizeAxis");
    if (axis == nullptr) return false;
    double begin = 0, end = 0;
    if (value.empty()) {
        Ctr<IBasicWaveReader> reader = QueryInterface<IBasicWaveReader>(dataset);
        if (!reader || !reader->GetMaxValidRange(begin, end, true)) return false;
    } else {
        std::tie(begin, end) = TwoValues(runner, value);
    }
    axis->SetScaleRange(&begin, &end);
    return true;
}

bool SetEstDataSize(IFuncRunner* runner, IBaseCtr* dataset, const std::string& value) {
    IBaseCtr* size = dataset->GetChildItem("EstDataSize");
    if (size == nullptr) {
        IBaseCtr* base = dataset->GetChildItem("__base");
        std::unique_ptr<IBaseCtr> made(Eval("UINT64 = 0", runner->Source()));
        if (base == nullptr || !made) return false;
        size = made.get();
        if (!base->AddChildItem(made.release(), "EstDataSize", true)) return false;
    }
    return SetItemValue(size, value, runner->Source(), nullptr);
}

}  // namespace

std::vector<CDataSetCtrFunc::Element> CDataSetCtrFunc::SplitList(const std::string& text) {
    std::vector<Element> elements;
    for (const std::string& piece : SplitString(text, ",")) {
        std::string name, value;
        if (SplitString(piece, ":", name, value))
            elements.emplace_back(name, value);
        else
            elements.emplace_back(std::string{}, name);
    }
    return elements;
}

double CDataSetCtrFunc::ValueOf(IFuncRunner* runner, const std::string& text) {
    if (IBaseCtr* item = runner ? runner->FindItem(text) : nullptr) return item->GetValue().ToDouble();
    double value = 0;
    return SysParseDouble(text, value) ? value : 0.0;
}

std::pair<double, double> CDataSetCtrFunc::CalcRangeOf(IFuncRunner* runner, const std::string& text) {
    double values[2] = {0.0, 0.0};
    const std::vector<std::string> pieces = SplitString(text, ":");
    for (std::size_t i = 0; i < pieces.size() && i < 2; ++i) {
        std::string name, value;
        if (SplitString(pieces[i], "=", name, value) && !value.empty()) values[i] = ValueOf(runner, value);
    }
    return {values[0], values[1]};
}

bool CDataSetCtrFunc::Run(IFuncRunner* runner) {
    if (runner == nullptr) return false;
    IBaseCtr* dataset = runner->FindItem(ReadAttr("id"));
    if (dataset == nullptr) return false;
    std::string value = ReadAttr("value");
    if (value.empty()) value = ReadAttr("args");
    return Command(runner, dataset, ReadAttr("ctr"), value);
}

bool CDataSetCtrFunc::Command(IFuncRunner* runner, IBaseCtr* dataset, const std::string& command,
                              const std::string& value) {
    auto is = [&](const char* name) { return StringCompare(command, name, true) == 0; };
    if (is("setSizeAxis") || is("setDataAxis")) {
        IBaseCtr* axis = runner->FindItem(value);
        return axis != nullptr && dataset->AddChildItem(axis, is("setSizeAxis") ? "sizeAxis" : "dataAxis", false);
    }
    const bool offset = is("setDataOffsetRange") || is("setSizeOffsetRange");
    if (offset || is("setDataScaleRange") || is("setSizeScaleRange")) {
        const bool data = is("setDataOffsetRange") || is("setDataScaleRange");
        IDatasetAxis* axis = AxisOf(dataset, data ? "dataAxis" : "sizeAxis");
        if (axis == nullptr) return false;
        auto [a, b] = TwoValues(runner, value);
        if (offset)
            axis->SetOffsetRange(&a, &b);
        else
            axis->SetScaleRange(&a, &b);
        return true;
    }
    if (is("setSizeOffsetRangeStr") || is("setDataOffsetRangeStr")) {
        const bool data = is("setDataOffsetRangeStr");
        IDatasetAxis* axis = AxisOf(dataset, data ? "dataAxis" : "sizeAxis");
        double a = 0, b = 0;
        if (axis == nullptr || !PairFromText(runner, value, a, b)) return false;
        if (data)
            axis->SetOffsetRange(&b, &a);
        else
            axis->SetOffsetRange(&a, &b);
        return true;
    }
    if (is("setParent")) {
        bool ok = true;
        for (const auto& [name, item] : SplitList(value))
            ok = dataset->AddChildItem(runner->FindItem(item), name, false) && ok;
        return ok;
    }
    if (is("SetEstDataSize")) return SetEstDataSize(runner, dataset, value);
    if (is("SetDataState")) {
        IBaseCtr* state = dataset->GetChildItem("ST_DataState");
        return state != nullptr && SetItemValue(state, value, runner->Source(), nullptr);
    }
    if (is("ResetSizeAxisRange")) return ResetSizeAxisRange(runner, dataset, value);
    if (is("setCalcRange")) return CalcRange(runner, dataset, value);
    if (is("SetSystemBaseTime")) {
        IBaseCtr* from = runner->FindItem(value);
        IBaseCtr* parent = dataset->GetParent();
        IBaseCtr* to = parent ? parent->GetChildItem("SystemBaseTime") : nullptr;
        return from != nullptr && to != nullptr && to->SetValue(from->GetValue());
    }
    return dataset->OnCMD(command, runner->FindItem(value));
}

bool RegisterDataSetCtrFunc() {
    return CBaseFuncItemCreater::InitFuncCreater(GetRootFuncManager(), "dataset",
                                                 [] { return std::make_unique<CDataSetCtrFunc>(); });
}
