#include "reader/data_piece.h"

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/string_utils.h"
#include "host/var.h"
#include "reader/piece_reader.h"

#include <utility>

namespace {

constexpr const char* kPieceTypeName = "PieceDataset";

// The axis item's zero position; 0 when it is no axis.
double AxisZero(IBaseCtr* axis_item) {
    Ctr<IDatasetAxis> axis = QueryInterface<IDatasetAxis>(axis_item);
    return axis ? axis->GetTrigPos() : 0.0;
}

double ParseDoubleOrZero(const std::string& text) {
    double value = 0.0;
    if (!SysStringToValue(SysVarType::DOUBLE, text, &value)) return 0.0;
    return value;
}

}  // namespace

namespace Vellum {

DataPieceWrapper::~DataPieceWrapper() = default;

bool DataPieceWrapper::InitItemByXML(ILocalSource* source, IBaseCtr*, const pugi::xml_node& node) {
    if (const pugi::xml_attribute init = node.attribute("init")) ApplyInit(init.value(), source);
    return true;
}

void DataPieceWrapper::ApplyInit(const std::string& text, ILocalSource* source) {
    IBaseCtr* data = nullptr;
    IBaseCtr* axis = nullptr;
    Range<double> parsed{0.0, 0.0};
    double zero = 0.0;

    // Split by hand: the range holds a comma, which the host's configuration parser
    // would take for a separator.
    for (const std::string& entry : SplitString(text, ";")) {
        std::string key, value;
        if (!SplitString(entry, "=", key, value)) continue;
        auto is = [&key](const char* name) { return StringCompare(key, name, true) == 0; };
        if (is("data")) {
            data = source ? GetLocalItem(source, nullptr, value) : nullptr;
        } else if (is("axis")) {
            axis = source ? GetLocalItem(source, nullptr, value) : nullptr;
        } else if (is("range")) {
            std::string begin, end;
            if (SplitString(value, ",", begin, end)) parsed = {ParseDoubleOrZero(begin), ParseDoubleOrZero(end)};
        } else if (is("zero")) {
            zero = ParseDoubleOrZero(value);
        }
    }
    if (data != nullptr && axis != nullptr) Configure(data, axis, parsed, zero);
}

void DataPieceWrapper::Configure(IBaseCtr* data, IBaseCtr* axis, const Range<double>& new_range, double zero) {
    data_item = data;
    axis_item = axis;
    range = std::make_unique<Range<double>>(new_range);
    zero_offset = zero - AxisZero(axis);
}

IBaseCtr* DataPieceWrapper::GetChildItem(const std::string& name) {
    if (name == "sizeAxis") return axis_item;
    // A piece can't stand in for a dataset where these are needed.
    if (name == "__base" || name == "__local") return nullptr;
    return data_item ? data_item->GetChildItem(name) : nullptr;
}

std::shared_ptr<CtrVar> DataPieceWrapper::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (data_item == nullptr || !range) return {};
    std::shared_ptr<CtrVar> answer = data_item->GetExtendCtr(type, flag, name);
    auto* reader = MagicCast<IPieceReader>(answer);
    if (reader == nullptr) return {};
    Ctr<IDatasetAxis> axis = QueryInterface<IDatasetAxis>(axis_item);
    IDatasetAxis* axis_ptr = axis.get();
    reader->SetAxis(axis_ptr);
    reader->SetBaseRange(range->begin, range->end);
    const double axis_zero = axis_ptr ? axis_ptr->GetTrigPos() : 0.0;
    reader->SetZeroPosition(axis_zero + zero_offset, IPieceReader::kTimeModePiece);
    return answer;
}

}  // namespace Vellum

// ---------------------------------------------------------------------------------------

IBlockDrawReader::IBlockDrawReader(std::shared_ptr<StorageBase> storage, IItemType* type)
    : storage_(std::move(storage)), type_(type) {}

IBlockDrawReader::~IBlockDrawReader() = default;

bool IBlockDrawReader::GetData(double, double, unsigned int, std::vector<BlockDrawStruct>&) { return false; }

// ---------------------------------------------------------------------------------------

namespace {

using Vellum::DataPieceWrapper;

// The item of a piece. The generic class binding forwards no child look-ups, and a piece
// must answer "sizeAxis" and forward its other children, so it has an item of its own.
class PieceItem final : public CBaseItem {
public:
    PieceItem(std::string name, IItemType* type)
        : CBaseItem(std::move(name), type), object_(std::make_unique<DataPieceWrapper>()) {}
    ~PieceItem() override { NotifyDestroy(); }

    IBaseCtr* GetChildItem(const std::string& name) override { return object_->GetChildItem(name); }

    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<DataPieceWrapper>()) return MakeCtrVar<DataPieceWrapper>(object_.get());
        if (type == VellumTypeOf<IItemXmlInit>()) return MakeCtrVar<IItemXmlInit>(object_.get());
        if (auto answer = object_->GetExtendCtr(type, flag, name)) return answer;
        return CBaseItem::GetExtendCtr(type, flag, name);
    }

private:
    std::unique_ptr<DataPieceWrapper> object_;
};

class PieceItemType final : public IItemType {
public:
    using IItemType::IItemType;
    const VellumTypeID* ObjectType() const override { return &VellumTypeOf<DataPieceWrapper>(); }
    IBaseCtr* CreateItem(const std::string& name) override { return new PieceItem(name, this); }
};

}  // namespace

IItemType* RegisterPieceType(ILocalSource* source) {
    ICPPTypeManager* manager = GetCPPTypeManager();
    ILocalSource* scope = source != nullptr ? source : manager->Root();
    IItemType* type = manager->Find(VellumTypeOf<DataPieceWrapper>());
    if (type == nullptr)
        type = manager->Enter(VellumTypeOf<DataPieceWrapper>(), std::make_unique<PieceItemType>(kPieceTypeName, scope));
    if (type != nullptr && scope->GetLocalItemType(kPieceTypeName, false) == nullptr)
        scope->RegisterItemType(kPieceTypeName, type, false);
    return type;
}

IBaseCtr* CreatePiece(IBaseCtr* data, Range<double> range, double zero, IBaseCtr* axis) {
    if (data == nullptr || axis == nullptr || !(range.end > range.begin)) return nullptr;
    if (data->GetChildItem("sizeAxis") == nullptr) return nullptr;

    IItemType* type = GetCPPTypeManager()->Find(VellumTypeOf<DataPieceWrapper>());
    if (type == nullptr) return nullptr;  // the module registered no piece type
    std::unique_ptr<IBaseCtr> item(CreateItemByType(type->Source(), kPieceTypeName, {}));
    Ctr<DataPieceWrapper> piece = QueryInterface<DataPieceWrapper>(item.get());
    if (!piece) return nullptr;
    piece->Configure(data, axis, range, zero);
    return item.release();
}
