#pragma once
// Axes of a dataset: the linear mapping between raw values and display units, the window
// a display shows, its zoom and scroll limits and a few state words.
//
// Every wave dataset has two axis items of type "AXIS": "sizeAxis" maps sample positions
// to seconds, "dataAxis" maps raw sample values to engineering units.
//
//   IRatio / CRatio<T>   the mapping value = raw x ratio + offset
//   IOstraAxisInterface  what the display toolkit reads and writes
//   CDataAxisInfo        a plain implementation of it
//   IDatasetAxis         what datasets and readers ask of an axis
//   CDatasetAxis         the axis class behind the item type "AXIS"
//
// An axis can be driven by host value items: the "init" attribute of its XML node binds
// them by name. A bound item is read at every query, so a script or panel that changes
// it is seen at the next read. The bound ratio item holds the width of one division and
// the bound offset item the centre of the window; "Reset" turns them into the width of a
// sample and the window's left edge.
//
// Axis values are plain fields without a lock: readers on any thread see them as they
// are. An axis works without an item as well (readers may hold a bare IDatasetAxis*);
// its events then go to its own event control.

#include "host/base_ctr.h"
#include "host/ctr_var.h"
#include "host/var.h"
#include "host/xml_items.h"

#include <cstdint>
#include <memory>
#include <string>

class ILocalSource;
class IItemType;

// Names of the axis notifications shared with the display side. This module raises none
// of them; they are here so that both sides spell them alike.
inline constexpr const char* kAxisDivChanged = "axis_divChanged";
inline constexpr const char* kAxisOffsetChanged = "axis_offsetChanged";
inline constexpr const char* kAxisRangeChanged = "axis_rangeChanged";

// A translation between raw values and values shown to the user.
class ITranslate {
public:
    virtual ~ITranslate() = default;
    // Type of the translated values.
    virtual SysVarType GetVarType() = 0;
    // out = the translation of raw; false (out untouched) when raw is not a number.
    virtual bool Translate(Vellum::Var& out, Vellum::Var raw) = 0;
    // raw = the value that translates to value; false when there is none.
    virtual bool ReverseTranslate(Vellum::Var& raw, Vellum::Var value) = 0;
};

// A linear translation: value = raw x ratio + offset.
class IRatio : public ITranslate {
public:
    virtual double GetRatio() = 0;
    virtual double GetOffset() = 0;
    virtual void SetRatioOffset(double ratio, double offset) = 0;
};

template <class T>
class CRatio : public IRatio {
public:
    SysVarType GetVarType() override;
    bool Translate(Vellum::Var& out, Vellum::Var raw) override;
    // False for a ratio of 0, which has no inverse.
    bool ReverseTranslate(Vellum::Var& raw, Vellum::Var value) override;
    double GetRatio() override;
    double GetOffset() override;
    // A ratio below 1e-9 is logged as an error and used all the same. Both values are
    // kept rounded to 1e-15, so that values that went through text compare equal.
    void SetRatioOffset(double new_ratio, double new_offset) override;

private:
    T offset = 0;
    T ratio = 1;
};

extern template class CRatio<double>;

// The six operations of the display toolkit's axis.
class IOstraAxisInterface {
public:
    virtual ~IOstraAxisInterface() = default;
    virtual double GetRatio() = 0;
    virtual bool SetRatio(double value) = 0;
    virtual double GetOffset() = 0;
    virtual bool SetOffset(double value) = 0;
    virtual void GetRange(double* begin, double* end) = 0;
    virtual bool SetRange(double begin, double end) = 0;
};

class CDataAxisInfo : public IOstraAxisInterface {
public:
    double GetRatio() override { return ratio; }
    bool SetRatio(double value) override;
    double GetOffset() override { return offset; }
    bool SetOffset(double value) override;
    void GetRange(double* begin, double* end) override;
    // False, storing nothing, when both ends are within 1e-12 of the stored ones.
    bool SetRange(double begin, double end) override;

protected:
    double offset = 0.0;
    double ratio = 1.0;
    uint32_t reserved = 0;
    double range_begin = 0.0;
    double range_end = 0.0;
};

// What datasets and readers ask of an axis.
class IDatasetAxis {
public:
    virtual ~IDatasetAxis() = default;
    virtual bool GetAsync() = 0;
    virtual void SetAsync(bool value) = 0;
    // Offset and width of the whole window as the bound items give them.
    virtual bool SetOffsetScale(double offset, double width) = 0;
    virtual void GetOffsetScale(double* offset, double* width) = 0;
    virtual void GetScaleRange(double* min, double* max) = 0;
    virtual void GetOffsetRange(double* min, double* max) = 0;
    // For a size axis: the period of one sample in seconds.
    virtual double GetRatio() = 0;
    virtual void SetCalcRange(uint64_t* begin, uint64_t* end) = 0;
    virtual void GetCalcRange(uint64_t* begin, uint64_t* end) = 0;
    virtual void SetScaleRange(double* min, double* max) = 0;
    virtual void SetOffsetRange(double* min, double* max) = 0;
    virtual void SetTrigPos(double value) = 0;
    virtual double GetTrigPos() = 0;
    virtual uint32_t GetAxisState() = 0;
    virtual void GetRatioOffset(double* offset, double* ratio) = 0;
    // Note the order: offset first. Fires "Update".
    virtual void SetRatioOffset(double offset, double ratio) = 0;
    virtual void GetRange(double* begin, double* end) = 0;
    virtual void SetRange(double* begin, double* end) = 0;
    virtual uint64_t GetScale() = 0;
    virtual void SetScale(uint64_t* value) = 0;
    // Samples per index column; 0 lets the dataset choose.
    virtual void SetIndexStep(uint64_t value) = 0;
    virtual uint64_t GetIndexStep() = 0;
    // Offset between data time and base time. Fires "Update".
    virtual void SetDataOffset(double value) = 0;
    virtual double GetDataOffset() = 0;
    virtual bool HasData() = 0;
};

// The axis class behind the item type "AXIS".
//
// GetRatio and GetRange have the same signatures in IOstraAxisInterface and IDatasetAxis,
// so the versions here answer both: the display sees the axis' own mapping and window.
class CDatasetAxis : public CDataAxisInfo, public IDatasetAxis, public IItemXmlInit {
public:
    CDatasetAxis();
    ~CDatasetAxis() override;
    CDatasetAxis(const CDatasetAxis&) = delete;
    CDatasetAxis& operator=(const CDatasetAxis&) = delete;

    // Struct fields of the item type: trig_pos, axisstate, hasdata, aync.
    static bool InitType(IItemType* type, const std::string& name);
    // Makes the local value items and registers the axis events on item (on the axis'
    // own event control when item is null).
    bool InitItem(IBaseCtr* item);
    // Reads the node's "init" attribute; a node without one changes nothing. Always true.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;
    // "Reset", "Lock", "UnLock", "DataPre", "DataFinish" (exact names) answer true; any
    // other command is left to the item's generic handling (false).
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    // Answers IDatasetAxis, IOstraAxisInterface, CDataAxisInfo and the mapping (IRatio,
    // ITranslate); empty for anything else.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

    // Applies an "init" text: "key=value" pairs, see the .cpp for the keys. Values that
    // name an item of source bind it; others are literals. Ends with the Reset step.
    void ApplyInit(const std::string& text, ILocalSource* source);
    // The Reset step: the bound division width and window centre become the sample width
    // and the window's left edge. False when it did nothing: locked without bound items,
    // or a scale of 0 (no sample width).
    bool Reset();

    // IDatasetAxis
    bool GetAsync() override { return aync; }
    void SetAsync(bool value) override { aync = value; }
    // False, changing nothing, while the axis has 0 divisions.
    bool SetOffsetScale(double new_offset, double width) override;
    void GetOffsetScale(double* offset_out, double* width_out) override;
    void GetScaleRange(double* min, double* max) override;
    void GetOffsetRange(double* min, double* max) override;
    double GetRatio() override;
    void SetCalcRange(uint64_t* begin, uint64_t* end) override;
    void GetCalcRange(uint64_t* begin, uint64_t* end) override;
    void SetScaleRange(double* min, double* max) override;
    void SetOffsetRange(double* min, double* max) override;
    void SetTrigPos(double value) override { trig_pos = value; }
    double GetTrigPos() override { return trig_pos; }
    uint32_t GetAxisState() override { return axisstate; }
    void GetRatioOffset(double* offset_out, double* ratio_out) override;
    void SetRatioOffset(double new_offset, double new_ratio) override;
    void GetRange(double* begin, double* end) override;
    // Nothing happens while the axis has 0 divisions.
    void SetRange(double* begin, double* end) override;
    using CDataAxisInfo::SetRange;
    uint64_t GetScale() override;
    void SetScale(uint64_t* value) override;
    void SetIndexStep(uint64_t value) override { index_step = value; }
    uint64_t GetIndexStep() override { return index_step; }
    void SetDataOffset(double value) override;
    double GetDataOffset() override { return data_offset; }
    bool HasData() override { return hasdata != 0; }

    // The local value items (null before InitItem). "ValueChanged" fires on them when
    // SetOffsetScale writes a new division width or centre.
    IBaseCtr* RatioVar() const { return ratio_var.local.get(); }
    IBaseCtr* OffsetVar() const { return offset_var.local.get(); }
    IBaseCtr* ScaleVar() const { return scale_var.local.get(); }
    IBaseCtr* CountVar() const { return count_var.local.get(); }
    // Where the axis fires its events: its item, or its own event control without one.
    IBaseCtr* EventItem() const { return item_ ? item_ : event_ctr.get(); }
    uint32_t GetCount() const { return count; }

private:
    // A local value item, with the external item that "init" bound in its place.
    struct AxisValue {
        std::unique_ptr<IBaseCtr> local;
        IBaseCtr* bound = nullptr;
        bool is_bound = false;
    };

    void RefreshCount();
    void RefreshScale();
    void Fire(const std::string& event);

    AxisValue ratio_var;
    AxisValue offset_var;
    AxisValue scale_var;
    AxisValue count_var;
    IBaseCtr* ratio_item = nullptr;
    IBaseCtr* offset_item = nullptr;
    IBaseCtr* scale_item = nullptr;
    IBaseCtr* count_item = nullptr;
    uint32_t count = 1;
    uint64_t scale = 1;
    IBaseCtr* max_offset_item = nullptr;
    IBaseCtr* min_offset_item = nullptr;
    IBaseCtr* min_scale_item = nullptr;
    IBaseCtr* max_scale_item = nullptr;
    double min_offset = 0.0;
    double max_offset = 0.0;
    double min_scale = 0.0;
    double max_scale = 0.0;
    uint64_t calc_begin = 0;
    uint64_t calc_end = 0;
    CRatio<double> ratio;
    std::unique_ptr<IBaseCtr> event_ctr;
    double trig_pos = 0.0;
    uint32_t axisstate = 0;
    uint32_t hasdata = 1;
    bool aync = false;
    uint64_t index_step = 0;
    double data_offset = 0.0;
    IBaseCtr* item_ = nullptr;
};

VELLUM_BASES(IRatio, ITranslate);
VELLUM_BASES(CRatio<double>, IRatio);
VELLUM_BASES(CDataAxisInfo, IOstraAxisInterface);
VELLUM_BASES(CDatasetAxis, CDataAxisInfo, IDatasetAxis, IItemXmlInit);

// Registers the item type "AXIS" (CDatasetAxis) and makes sure source knows it under that
// name (the type manager's root scope without a source). The type itself is made once.
IItemType* RegisterAxisType(ILocalSource* source);
