#pragma once
// Data pieces: a window on a wave dataset placed on a time axis of its own.
//
// A piece item ("PieceDataset") has no data. It forwards child look-ups and interface
// queries to its dataset, and every reader taken through it is told the piece's base
// range (which clips the data), its axis and its zero position (which shift it); the
// reader's PieceTool does the arithmetic.
//
// XML: <item name="p" type="PieceDataset" init="data=wave;axis=wave.sizeAxis;range=1,2;zero=0.5"/>
// Programmatic: CreatePiece. The dataset and axis items must outlive the piece.

#include "dataset/records.h"
#include "host/ctr_var.h"
#include "host/xml_items.h"

#include <memory>
#include <string>
#include <vector>

class IBaseCtr;
class IItemType;
class ILocalSource;
class StorageBase;

namespace Vellum {

class DataPieceWrapper : public IItemXmlInit {
public:
    DataPieceWrapper() = default;
    ~DataPieceWrapper() override;
    DataPieceWrapper(const DataPieceWrapper&) = delete;
    DataPieceWrapper& operator=(const DataPieceWrapper&) = delete;

    // Applies the node's "init" attribute (see ApplyInit). Always true: a piece whose
    // items can't be found is kept, inert.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;

    // "key=value" items separated by ';' (keys compared without regard to case, unknown
    // keys and items without '=' ignored):
    //   data   local name of the dataset item        axis   local name of the axis item
    //   range  "begin,end"; without a comma 0, 0; an end that doesn't parse is 0
    //   zero   the zero position; 0.0 when it doesn't parse
    // Names are resolved by GetLocalItem in source. Only when both data and axis resolve
    // is the piece configured; otherwise nothing changes.
    void ApplyInit(const std::string& text, ILocalSource* source);

    // Sets the dataset, the axis item and a copy of range. The zero is kept relative to
    // the axis's zero position at this moment (taken as 0 when axis is no axis).
    void Configure(IBaseCtr* data, IBaseCtr* axis, const Range<double>& range, double zero);

    // "sizeAxis": the axis item; "__base", "__local": null; anything else: the
    // dataset's child of that name (null without a dataset).
    IBaseCtr* GetChildItem(const std::string& name);

    // Asks the dataset; the answer is given only if it is an IPieceReader, which is then
    // set to the piece's axis, base range and current zero position. Empty otherwise,
    // and always empty before a configuration.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

    IBaseCtr* DataItem() const { return data_item; }
    IBaseCtr* AxisItem() const { return axis_item; }
    double ZeroOffset() const { return zero_offset; }
    // Null before the first configuration.
    const Range<double>* GetRange() const { return range.get(); }

private:
    IBaseCtr* data_item = nullptr;  // not owned
    IBaseCtr* axis_item = nullptr;  // not owned
    double zero_offset = 0.0;       // zero given less the axis's zero position at configuration
    std::unique_ptr<Range<double>> range;
};

}  // namespace Vellum

VELLUM_BASES(Vellum::DataPieceWrapper, IItemXmlInit);

// A reader of drawing blocks over a storage. This module has no drawing blocks: GetData
// answers false and touches nothing.
class IBlockDrawReader {
public:
    IBlockDrawReader(std::shared_ptr<StorageBase> storage, IItemType* type);
    virtual ~IBlockDrawReader();
    IBlockDrawReader(const IBlockDrawReader&) = delete;
    IBlockDrawReader& operator=(const IBlockDrawReader&) = delete;

    virtual bool GetData(double begin, double end, unsigned int count, std::vector<BlockDrawStruct>& out);

    const std::shared_ptr<StorageBase>& Storage() const { return storage_; }
    IItemType* Type() const { return type_; }

private:
    std::shared_ptr<StorageBase> storage_;
    IItemType* type_;
};

// A new piece of data on range, with zero shown at the axis's zero position. Null unless
// data and axis are given, range.end > range.begin, data has a child "sizeAxis", and the
// type "PieceDataset" is registered (RegisterPieceType). The caller owns the item.
IBaseCtr* CreatePiece(IBaseCtr* data, Range<double> range, double zero, IBaseCtr* axis);

// Registers the item type "PieceDataset" in source (the type manager's root scope without
// one). The type itself is made once per process; a further scope gets it by name.
IItemType* RegisterPieceType(ILocalSource* source);
