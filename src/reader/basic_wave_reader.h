#pragma once
// CBasicWaveReader<T>: the time-addressed view of one wave dataset.
//
// It holds no samples: every call reads through the dataset's three IReaders ("Wave",
// "Index", "Area") and re-reads the axis parameters first, so it always sees the
// dataset as it stands. Times are seconds on the dataset's time axis. Operations that
// take a range by reference treat it in this order and undo it in reverse on every
// way out: subtract the axis' data offset; map from piece time to base time (clipped
// to the piece's base range); work; map back to piece time. The range checks of the
// reading operations compare the request, in base time by then, with GetMaxValidRange,
// which answers in piece time: on a piece that is not at zero the two mix, and a view
// is cut or refused by the shifted range. Callers rely on these exact results.
//
// One reader object belongs to one thread at a time; several readers may share a
// dataset. SetLock(true/false) holds the dataset's lock across a series of reads.

#include "dataset/dataset_tool.h"
#include "dataset/records.h"
#include "host/ctr_var.h"
#include "reader/piece_reader.h"
#include "reader/piece_tool.h"
#include "wave/struct_reader.h"

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

class IBaseCtr;
template <class T>
class IndexSummary;
template <class T>
class SummaryCursor;

class IBasicWaveReader : public IPieceReader {
public:
    // The sample at time, as a double (NaN for a stored invalid value); false, value
    // untouched, where there is no sample.
    virtual bool At(double time, double& value) = 0;
    // The time of the sample where the wave next reaches value, searching from time
    // forward or backward: a crossing, not only an equal sample; the nearer of the two
    // samples around it. False if there is none. result is passed through the piece
    // transform on every way out, found or not: look at the result flag.
    virtual bool Find(const double& value, double time, double& result, bool forward) = 0;
    // The samples of [begin, end]: one run of one area, at most 1 MiB of samples, with the
    // range cut to what was served (with_gaps false); or (with_gaps true) a grid of
    // trunc((end - begin) / sample period) elements over the whole span, where element i
    // holds the sample whose time is nearest begin + i sample periods (a sample halfway
    // between two elements goes to the later one), in every area alike, and NaN where no
    // sample lies within half a period.
    virtual void GetData(double& begin, double& end, std::vector<double>& out, bool with_gaps) = 0;
    // One min/max column per pixel column of [begin, end], served from the samples, the
    // index or by filling between samples (param: 0 raw, 1 hold, 2 dots, 3 spline,
    // 4 linear); NaN columns where there is no data. begin and end come back as the
    // span served; out.size() is the number of columns given. whole_range: one column of
    // plain extremes per piece, without snapping the span.
    virtual void GetMinMaxData(double& begin, double& end, std::vector<MinMaxData<double>>& out,
                               unsigned int columns, GetDataParam param, unsigned char whole_range) = 0;
    // Not provided by this reader: false, out untouched.
    virtual bool GetDiscreteValue(double begin, double end, std::pair<double, double>* out, unsigned int count) = 0;
    // The span that holds data, in piece time; false for an empty wave.
    virtual bool GetMaxValidRange(double& begin, double& end, bool with_offset) = 0;
    virtual void SetLock(bool lock) const = 0;
    virtual __internal::DataSetTool* GetTools() = 0;
};

template <class T>
class CBasicWaveReader : public IBasicWaveReader {
public:
    CBasicWaveReader(IBaseCtr* owner, std::shared_ptr<IReader> wave, std::shared_ptr<IReader> index,
                     std::shared_ptr<IReader> area);
    ~CBasicWaveReader() override;
    CBasicWaveReader(const CBasicWaveReader&) = delete;
    CBasicWaveReader& operator=(const CBasicWaveReader&) = delete;

    void SetBaseRange(double begin, double end) override { piece_.SetBaseRange(begin, end); }
    void SetZeroPosition(double position, TimeMode) override { piece_.SetZero(position); }
    void SetAxis(IDatasetAxis* axis) override { piece_.SetAxis(axis); }

    bool At(double time, double& value) override;
    bool Find(const double& value, double time, double& result, bool forward) override;
    void GetData(double& begin, double& end, std::vector<double>& out, bool with_gaps) override;
    bool GetDiscreteValue(double begin, double end, std::pair<double, double>* out, unsigned int count) override;
    bool GetMaxValidRange(double& begin, double& end, bool with_offset) override;
    void GetMinMaxData(double& begin, double& end, std::vector<MinMaxData<double>>& out, unsigned int columns,
                       GetDataParam param, unsigned char whole_range) override;
    void SetLock(bool lock) const override;
    __internal::DataSetTool* GetTools() override { return tools_.get(); }

    // Typed twins.
    bool AtT(double time, T* value);
    bool FindT(const T& value, double time, double& result, bool forward);
    void GetDataT(double& begin, double& end, std::vector<T>& out, bool with_gaps);
    bool GetDiscreteValueT(double begin, double end, std::pair<double, double>* out, unsigned int count);
    void GetMinMaxDataT(double& begin, double& end, std::vector<MinMaxData<T>>& out, unsigned int columns,
                        GetDataParam param, unsigned char whole_range);
    double PointsPerColumn() const { return points_per_column_; }
    // Index summary: group records over "Index" that views and searches over many entries
    // read in place of the entries, with the same results. Given by the dataset; without
    // one (or while it isn't ready) every entry is read.
    void SetIndexSummary(std::shared_ptr<const IndexSummary<T>> summary) { summary_ = std::move(summary); }

    // Refreshes the periods and the axis span from the size axis.
    void Load();
    // Position of a time in an area; all ones outside it.
    uint64_t Time2WavePos(double time, const ValidDataArea& area);
    double WavePos2Time(uint64_t position, const ValidDataArea& area);

    static double T2Double(const T& value);
    static T Double2T(double value);

    // The raw column scan folds each column straight from the sample window, in one
    // pass over the columns, instead of a windowed read per column. Same results bit
    // for bit; on by default, off for comparisons.
    static void SetDirectColumnScan(bool on) { direct_column_scan_.store(on, std::memory_order_relaxed); }
    static bool DirectColumnScan() { return direct_column_scan_.load(std::memory_order_relaxed); }

    double SampleStep() const { return sample_step_; }
    double IndexStep() const { return index_step_; }
    // Samples per index column: ns(index step) / ns(sample step).
    uint64_t PointsPerIndex() const;

protected:
    // The span of samples that column id of area covers; end is one past a full column.
    void Index2WavePos(const ValidDataArea& area, uint64_t id, uint64_t& beg, uint64_t& end) const;
    void CalcCurTimeToIndex(const ValidDataArea& area, uint64_t position, uint64_t& id) const;
    bool GetIndexId(double time, uint64_t& id);
    // The area for a time; a time in a gap gives the area before it.
    bool GetArea(double time, ValidDataArea& area, uint64_t* index);
    // Snaps a start that is within a tenth of an index step of a column boundary onto it.
    void CalcBoundary(int64_t& begin_ns, int64_t& end_ns) const;
    // The pieces of data and gaps that make up [begin, end], in base time.
    void ComposeValidArea(double begin, double end, std::vector<_ValidAreaIndex>& pieces);

    // Min/max extraction: deal the columns to the pieces, and serve one piece from the
    // samples, the index, or by filling between samples.
    void GetWave(std::vector<_ValidAreaIndex>& pieces, std::vector<MinMaxData<T>>& out, unsigned int columns,
                 unsigned char whole_range, GetDataParam param);
    bool GetWaveMinMaxAtIndex(const _ValidAreaIndex& piece, MinMaxData<T>* out, uint64_t count,
                              unsigned char whole_range, GetDataParam param);
    bool UseIndexFind(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count);
    bool UseIndexGet(uint64_t first, uint64_t last, MinMaxData<T>& out);
    bool UseVolFind(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count);
    // UseVolFind with the columns folded in place in the sample window.
    bool ScanColumns(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count);
    // prefetch_last: how far a read may run ahead for the scans that follow.
    bool UseVolGet(uint64_t first, uint64_t last, MinMaxData<T>& out, uint64_t prefetch_last = 0);
    // Samples first..last (at most one run) from the sample window, reading it anew,
    // up to prefetch_last, when it doesn't hold them; got is the number available.
    const T* WindowSamples(uint64_t first, uint64_t last, uint64_t prefetch_last, uint64_t& got);
    bool UseOtherFind(const _ValidAreaIndex& piece, MinMaxData<T>* out, uint64_t count, GetDataParam param);
    // The path of a dataset with index columns but no samples.
    void IndexOnlyColumns(double& begin, double& end, std::vector<MinMaxData<T>>& out, unsigned int columns);
    // Value search. The index searches look for an entry that holds value, or a pair of
    // neighbours that meet it, upward from first or downward from last, and give their
    // positions in hit. The raw scans look for a crossing of value, upward from first or
    // downward from last, and give the sample position in found.
    bool FindNextIndex(double value, unsigned long long first, unsigned long long last,
                       std::pair<unsigned long long, unsigned long long>& hit);
    bool FindPreIndex(double value, unsigned long long first, unsigned long long last,
                      std::pair<unsigned long long, unsigned long long>& hit);
    bool ForwardFindValue(double value, unsigned long long first, unsigned long long last, unsigned long long& found);
    // The downward scan, in spite of its name.
    bool ForwardFindValueForward(double value, unsigned long long first, unsigned long long last,
                                 unsigned long long& found);


    // A cursor on the index summary for one request, or null to read the entries.
    SummaryCursor<T>* SummaryCursorNow();

    uint64_t AreaCount() const { return area_reader_ ? area_reader_->Count() : 0; }
    bool ReadArea(uint64_t index, ValidDataArea& area) const;
    ValidDataArea SyntheticArea(uint64_t first_count) const;

    std::shared_ptr<IReader> wave_reader_;
    std::shared_ptr<IReader> index_reader_;
    std::shared_ptr<IReader> area_reader_;
    // A window on the "Index" storage, made by the first index-served request.
    struct IndexCache {
        static constexpr std::size_t kEntries = 65536;
        uint64_t first = 0;
        uint64_t last = 0;
        std::vector<MinMaxData<T>> entries = std::vector<MinMaxData<T>>(kEntries);
    };
    std::unique_ptr<IndexCache> index_cache_;
    std::shared_ptr<const IndexSummary<T>> summary_;
    std::unique_ptr<SummaryCursor<T>> summary_cursor_;
    // A window of raw samples for the scans of one request; emptied at each request.
    std::vector<T> scan_buffer_;
    uint64_t window_first_ = 0;
    uint64_t window_count_ = 0;
    double points_per_column_ = 0;
    inline static std::atomic<bool> direct_column_scan_{true};
    double index_step_ = 0;
    double sample_step_ = 0;
    double axis_begin_ = 0;
    double axis_end_ = 0;
    std::unique_ptr<__internal::DataSetTool> tools_;
    PieceTool piece_;

private:
    // The range treatment of the reading operations, as a scope.
    class RangeScope;
};

// Handles of the readers cast to the interfaces above them, so that a piece can place
// any reader that a dataset hands out.
VELLUM_BASES(IBasicWaveReader, IPieceReader);

template <class T>
struct VellumBases<CBasicWaveReader<T>> {
    static void* Visit(CBasicWaveReader<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<CBasicWaveReader<T>, IBasicWaveReader>(object, to);
    }
};

extern template class CBasicWaveReader<int8_t>;
extern template class CBasicWaveReader<uint8_t>;
extern template class CBasicWaveReader<int16_t>;
extern template class CBasicWaveReader<uint16_t>;
extern template class CBasicWaveReader<int32_t>;
extern template class CBasicWaveReader<uint32_t>;
extern template class CBasicWaveReader<int64_t>;
extern template class CBasicWaveReader<uint64_t>;
extern template class CBasicWaveReader<float>;
extern template class CBasicWaveReader<double>;
extern template class CBasicWaveReader<LongDouble>;
