// Data pieces: the piece time arithmetic, the "PieceDataset" item and CreatePiece.

#include "dataset/axis.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "reader/data_piece.h"
#include "reader/piece_reader.h"
#include "reader/piece_tool.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace {

// A reader as a dataset hands it out: it keeps what the piece tells it.
struct TestReader : IPieceReader {
    void SetBaseRange(double b, double e) override { tool.SetBaseRange(b, e); }
    void SetZeroPosition(double z, TimeMode m) override {
        tool.SetZero(z);
        mode = m;
    }
    void SetAxis(IDatasetAxis* a) override { tool.SetAxis(a); }
    PieceTool tool;
    TimeMode mode = kTimeModeAbsolute;
};
// Stands in for a wave dataset: a new reader per query.
struct TestDataset {
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
        if (!(type == VellumTypeOf<TestReader>())) return {};
        return MakeOwnedCtrVar(std::make_unique<TestReader>());
    }
};

}  // namespace

VELLUM_BASES(TestReader, IPieceReader);

namespace {

ILocalSource* Scope() {  // one for the program: the type manager keeps a class's type once
    static ILocalSource* scope = [] {
        auto* made = new CLocalSource("piece_test", GetRootLocal());
        RegisterAxisType(made);
        RegisterPieceType(made);
        RegisterClassType<TestDataset>("PieceTestDataset", made);
        return made;
    }();
    return scope;
}
std::unique_ptr<IBaseCtr> Make(const std::string& type) {
    return std::unique_ptr<IBaseCtr>(CreateItemByType(Scope(), type, ""));
}
IDatasetAxis* AxisOf(IBaseCtr* item) { return QueryInterface<IDatasetAxis>(item).get(); }

TEST(PieceTool, PointTransformsAndClippingToTheBaseRange) {
    PieceTool tool;
    tool.SetZero(3.0);
    EXPECT_EQ(tool.B2P(42.5) + tool.P2B(-7.25), 42.5 - 7.25);  // no axis: no transform
    CDatasetAxis axis;
    axis.SetTrigPos(-4.0);
    tool.SetAxis(&axis);
    EXPECT_DOUBLE_EQ(tool.B2P(3.0), -4.0);
    axis.SetTrigPos(10.0);  // read at each call: base = piece - 7
    EXPECT_DOUBLE_EQ(tool.B2P(5.5), 12.5);
    EXPECT_DOUBLE_EQ(tool.P2B(0.0), -7.0);
    tool.SetBaseRange(0.0, 100.0);
    struct Case { double b, e, out_b, out_e; } cases[] = {
        {12, 20, 5, 13},      // inside: only shifted
        {2, 17, 0, 10},       // overlaps the start
        {-50, 250, 0, 100},   // covers the range
        {-40, -20, -40, -40}, // before: empty, in piece time
        {30, 20, 30, 30},     // reversed
    };
    for (const Case& c : cases) {
        double b = c.b, e = c.e;
        const auto pair = tool.TransformToBase(b, e);  // answers unclipped: a view keeps its columns
        EXPECT_EQ(std::make_tuple(pair.first, pair.second, b, e), std::make_tuple(c.b - 7, c.e - 7, c.out_b, c.out_e));
    }
    double b = 2, e = 17;  // back in piece time the caller sees the clip
    tool.TransformToBase(b, e);
    tool.TransformToPiece(b, e);
    EXPECT_EQ(std::make_pair(b, e), std::make_pair(7.0, 17.0));
    tool.SetAxis(nullptr);  // without an axis nothing is clipped
    b = -50, e = 250;
    tool.TransformToBase(b, e);
    EXPECT_EQ(std::make_pair(b, e), std::make_pair(-50.0, 250.0));
    tool.SetAxis(&axis);
    tool.SetBaseRange(50.0, 40.0);  // an empty base range lets nothing through
    tool.TransformToBase(b, e);
    EXPECT_EQ(e, -50.0);
}

TEST(DataPiece, CreatePieceRefusals) {
    auto data = Make("PieceTestDataset"), bare = Make("PieceTestDataset"), axis = Make("AXIS");
    data->AddChildItem(Make("AXIS").release(), "sizeAxis", true);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(CreatePiece(nullptr, {0, 1}, 0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {0, 1}, 0, nullptr), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {1, 1}, 0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {nan, 1}, 0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(bare.get(), {0, 1}, 0, axis.get()), nullptr);  // no "sizeAxis"
    EXPECT_NE(std::unique_ptr<IBaseCtr>(CreatePiece(data.get(), {0, 1}, 0, axis.get())), nullptr);
}

TEST(DataPiece, ChildrenAndReadersTakenThroughIt) {
    auto data = Make("PieceTestDataset"), axis = Make("AXIS");
    for (const char* child : {"sizeAxis", "dataAxis", "__base"})
        data->AddChildItem(Make("AXIS").release(), child, true);
    AxisOf(axis.get())->SetTrigPos(4.0);
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.25, 0.75}, 1.5, axis.get()));
    ASSERT_NE(piece, nullptr);
    EXPECT_EQ(piece->GetChildItem("sizeAxis"), axis.get());  // the piece's axis
    EXPECT_EQ(piece->GetChildItem("dataAxis"), data->GetChildItem("dataAxis"));
    EXPECT_EQ(piece->GetChildItem("__base"), nullptr);

    Ctr<TestReader> first = QueryInterface<TestReader>(piece.get());
    ASSERT_TRUE(first);
    EXPECT_EQ(first->tool.Axis(), AxisOf(axis.get()));
    EXPECT_EQ(std::make_pair(first->tool.BaseBegin(), first->tool.BaseEnd()), std::make_pair(0.25, 0.75));
    EXPECT_EQ(first->mode, IPieceReader::kTimeModePiece);
    AxisOf(axis.get())->SetTrigPos(6.0);  // a later reader follows the axis, the first keeps its zero
    EXPECT_DOUBLE_EQ(QueryInterface<TestReader>(piece.get())->tool.Zero(), 3.5);
    EXPECT_DOUBLE_EQ(first->tool.Zero(), 1.5);

    // The dataset's own answer (itself) is no piece reader: the piece answers for itself.
    EXPECT_EQ(QueryInterface<IBaseCtr>(piece.get()).get(), piece.get());
    EXPECT_FALSE(QueryInterface<TestReader>(Make("PieceDataset").get()));  // unconfigured
}

TEST(DataPiece, XmlInit) {
    auto items = CreateItemsFromXml(Scope(), "<i><item name='xw' type='PieceTestDataset'><item name='sizeAxis' "
                                             "type='AXIS'/></item><item name='xp' type='PieceDataset' init='DATA=xw; "
                                             "axis=xw.sizeAxis; range=0.5, 2.5 ;zero=1e-3;x=y;lonely'/></i>");
    ASSERT_EQ(items.size(), 2u);
    Ctr<TestReader> reader = QueryInterface<TestReader>(items[1].get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.Axis(), AxisOf(items[0]->GetChildItem("sizeAxis")));
    EXPECT_EQ(std::make_pair(reader->tool.BaseBegin(), reader->tool.BaseEnd()), std::make_pair(0.5, 2.5));
    EXPECT_DOUBLE_EQ(reader->tool.Zero(), 1e-3);
}

}  // namespace
