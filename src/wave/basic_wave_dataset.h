#pragma once
// BasicWaveDataSet<T>: one sampled wave as three parallel append-only storages:
//   "Wave"   the samples, T each;
//   "Index"  MinMaxData<T> columns, one level, each over consecutive samples of one area;
//   "Area"   ValidDataArea records, one per closed run of samples, in ascending time.
// The dataset computes nothing when data arrives: each Push is one append to one
// storage. Building columns and areas is the producer's work (see WaveProducer), done
// while the samples are still in its hands; readers rely on that layout.
//
// Item face: the child "WaveParam", the attribute "ElementType", the commands "lock",
// "unlock", "clear" / "WaveClear" (events "PostClear", then the clear, then
// "AfterClear"), "DataRefleshIgnor" (a fill by the child "Filler", then "Update"),
// "SetChannelDataset" and the link "DataCH" (the dataset item handed to a data channel),
// and the shared dataset commands. The configuration entry "cycle=SIZE(..)/TIME(..)"
// sets a limit (checked after each sample push) and the cycler child "CircleTool";
// the type functions "SetCycleSize", "SetCycleTime" and "DisableCycle" change the limit.
// Interface queries give the dataset, its three fillers, a new reader per query, owned
// by the answer (IBasicWaveReader / CBasicWaveReader<T>; the level and edge information
// readers; IDataReader named "EdgeReader", "LogicReader" or "ValidReader"), and IReader
// on "Wave", "Index" or "Area". The dynamic items "ValidReader", "EdgeReader" and
// "LogicReader" are iterator readers over those IDataReaders.

#include "dataset/dataset_base.h"
#include "dataset/partial_exportable.h"
#include "dataset/records.h"
#include "reader/basic_wave_reader.h"

#include <atomic>
#include <memory>
#include <string>

class BasicWaveChecker;
class IBaseCtr;
class IItemType;
class ILocalSource;
template <class T>
class SummaryBuilder;
template <class T>
class IndexSummary;

namespace __internal {
// The record of a wave dataset's partial export, made with the dataset (wave_partial_export.cpp).
template <class T>
struct WaveExportState;
template <class T>
std::shared_ptr<WaveExportState<T>> MakeWaveExportState();
}  // namespace __internal

template <class T>
class BasicWaveDataSet : public DataSetBase,
                         public StructFiller<T>,
                         public StructFiller<MinMaxData<T>>,
                         public StructFiller<ValidDataArea>,
                         public IPartialExportable {
public:
    BasicWaveDataSet();
    ~BasicWaveDataSet() override;

    // Appends samples to "Wave"; the units appended (0 for null data or count 0).
    unsigned long long Push(const T* data, unsigned long long count) override;
    // Appends columns to "Index".
    unsigned long long Push(const MinMaxData<T>* data, unsigned long long count) override;
    // Appends areas to "Area".
    unsigned long long Push(const ValidDataArea* data, unsigned long long count) override;

    static unsigned long long PresentFlags() { return 3; }
    std::string MainStorageId() override { return "Wave"; }

    static bool InitType(IItemType* type, const std::string& name);
    bool InitItem(IBaseCtr* item);
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    // "DataCH": item's data channel is handed this dataset's item. Always true.
    bool SetLinkItem(IBaseCtr* item, const std::string& name);
    std::string GetAttribute(const std::string& name) const;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    IBaseCtr* Item() const { return item_; }

    // A new reader of this dataset's three storages; the caller owns it.
    CBasicWaveReader<T>* CreateBasicWaveReader() const;

    // Partial export of time ranges into an export package (wave_partial_export.cpp).
    bool InitializeExport(bool with_files) override;
    bool AddRange(const Vellum::Var& begin, const Vellum::Var& end, const Vellum::Var& shift) override;
    bool FinalizeExport() override;

    // Index summary: levels of min/max records over "Index", kept beside it as columns are
    // pushed, emptied by a clear and rebuilt in the background after the columns change
    // (a load, a group switch). Readers made by this dataset use it to answer views and
    // searches over many columns with the same results. On by default; off, it is not
    // kept and readers read every column. Only datasets that make their own storages
    // have one.
    void SetIndexSummary(bool on);
    bool IndexSummaryOn() const;
    // Waits for a rebuild under way; true if readers use the summary now.
    bool WaitIndexSummary();
    // Bytes held by the summary.
    uint64_t IndexSummaryBytes() const;
    // The summary that this dataset's readers are given; null without one.
    std::shared_ptr<const IndexSummary<T>> Summary() const;
    // The columns may have changed under the summary: it is rebuilt.
    void OnDataChanged() override;
    // Before the storages are emptied: the summary is too.
    void OnClear() override;

protected:
    // For subclasses that bind their storages themselves: makes none.
    explicit BasicWaveDataSet(void*);

    // The cycle limit, checked after each sample push; they need InitItem done and a
    // "Wave" storage, and do nothing otherwise.
    void SetCycleSize(unsigned long long bytes);
    void SetCycleTime(double seconds);
    void DisableCycle();

private:
    // A reader of one storage, null for an id the dataset doesn't have.
    template <class R>
    std::unique_ptr<IReader> StructReader(const std::string& id) const;
    unsigned long long Append(const char* id, const void* data, unsigned long long count);
    // The checker, made on "Wave" on first use; null without an item or "Wave".
    BasicWaveChecker* Checker();
    void HandOverTo(IBaseCtr* channel_item);
    void RefreshFromFiller();

    IBaseCtr* item_ = nullptr;
    std::atomic<BasicWaveChecker*> checker_{nullptr};  // owned; read by the pushing thread
    std::shared_ptr<__internal::WaveExportState<T>> export_state_ = __internal::MakeWaveExportState<T>();
    std::unique_ptr<SummaryBuilder<T>> summary_;         // null without an own "Index"
};

extern template class BasicWaveDataSet<int8_t>;
extern template class BasicWaveDataSet<uint8_t>;
extern template class BasicWaveDataSet<int16_t>;
extern template class BasicWaveDataSet<uint16_t>;
extern template class BasicWaveDataSet<int32_t>;
extern template class BasicWaveDataSet<uint32_t>;
extern template class BasicWaveDataSet<int64_t>;
extern template class BasicWaveDataSet<uint64_t>;
extern template class BasicWaveDataSet<float>;
extern template class BasicWaveDataSet<double>;
extern template class BasicWaveDataSet<LongDouble>;
