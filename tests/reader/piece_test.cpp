// Data pieces: the piece time arithmetic, the "PieceDataset" item (children, readers
// taken through it, XML "init"), CreatePiece and the block draw reader.

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/xml_items.h"
#include "reader/data_piece.h"
#include "reader/piece_reader.h"
#include "reader/piece_tool.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

// A reader as the dataset hands it out: it only keeps what the piece tells it.
class TestPieceReader : public IPieceReader {
public:
    void SetBaseRange(double begin, double end) override { tool.SetBaseRange(begin, end); }
    void SetZeroPosition(double position, TimeMode new_mode) override {
        tool.SetZero(position);
        mode = new_mode;
        ++zero_calls;
    }
    void SetAxis(IDatasetAxis* axis) override { tool.SetAxis(axis); }

    PieceTool tool;
    TimeMode mode = kTimeModeAbsolute;
    int zero_calls = 0;
};

// A reader that can't be placed on a piece.
class PlainReader {
public:
    int value = 7;
};

// Stands in for a wave dataset: hands out a new reader of either kind per query.
class TestDataset {
public:
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
        ++queries;
        if (type == VellumTypeOf<TestPieceReader>()) return MakeOwnedCtrVar(std::make_unique<TestPieceReader>());
        if (type == VellumTypeOf<PlainReader>()) return MakeOwnedCtrVar(std::make_unique<PlainReader>());
        return {};
    }
    int queries = 0;
};

}  // namespace

VELLUM_BASES(TestPieceReader, IPieceReader);

namespace {

using Vellum::DataPieceWrapper;

constexpr double kTol = 1e-12;

// One scope for the whole test program: the type manager keeps a class's type once.
ILocalSource* Scope() {
    static ILocalSource* scope = [] {
        auto* made = new CLocalSource("piece_test_types", GetRootLocal());
        RegisterAxisType(made);
        RegisterClassType<TestDataset>("PieceTestDataset", made);
        RegisterPieceType(made);
        return made;
    }();
    return scope;
}

std::unique_ptr<IBaseCtr> MakeItem(const std::string& type, const std::string& name) {
    return std::unique_ptr<IBaseCtr>(CreateItemByType(Scope(), type, name));
}

IDatasetAxis* AxisOf(IBaseCtr* item) { return QueryInterface<IDatasetAxis>(item).get(); }

// A dataset item with the children "sizeAxis" and "dataAxis".
std::unique_ptr<IBaseCtr> MakeDataset(const std::string& name = "wave") {
    auto data = MakeItem("PieceTestDataset", name);
    data->AddChildItem(CreateItemByType(Scope(), "AXIS", "sizeAxis"), "sizeAxis", true);
    data->AddChildItem(CreateItemByType(Scope(), "AXIS", "dataAxis"), "dataAxis", true);
    return data;
}

// ---------------------------------------------------------------------------------------
// PieceTool

class PieceToolTest : public ::testing::Test {
protected:
    // Piece time = az + (base - zero): with az 10 and zero 3, base 3 shows at 10.
    void SetUp() override {
        axis.SetTrigPos(10.0);
        tool.SetAxis(&axis);
        tool.SetZero(3.0);
        tool.SetBaseRange(0.0, 100.0);
    }
    CDatasetAxis axis;
    PieceTool tool;
};

TEST(PieceToolPlain, DefaultIsZeroedAndWithoutAxis) {
    const PieceTool tool;
    EXPECT_EQ(tool.BaseBegin(), 0.0);
    EXPECT_EQ(tool.BaseEnd(), 0.0);
    EXPECT_EQ(tool.Zero(), 0.0);
    EXPECT_EQ(tool.Axis(), nullptr);
}

TEST(PieceToolPlain, WithoutAxisEverythingPassesThrough) {
    PieceTool tool;
    tool.SetBaseRange(5.0, 6.0);
    tool.SetZero(2.0);
    EXPECT_EQ(tool.B2P(42.5), 42.5);
    EXPECT_EQ(tool.P2B(-7.25), -7.25);

    // Far outside the base range, reversed, empty: nothing is clipped or moved.
    for (auto [b0, e0] : {std::pair{-100.0, -50.0}, std::pair{9.0, 3.0}, std::pair{1.0, 1.0}}) {
        double b = b0, e = e0;
        const auto pair = tool.TransformToBase(b, e);
        EXPECT_EQ(pair.first, b0);
        EXPECT_EQ(pair.second, e0);
        EXPECT_EQ(b, b0);
        EXPECT_EQ(e, e0);
        tool.TransformToPiece(b, e);
        EXPECT_EQ(b, b0);
        EXPECT_EQ(e, e0);
    }
}

TEST_F(PieceToolTest, PointTransformsShiftByZeroAndAxisZero) {
    EXPECT_DOUBLE_EQ(tool.B2P(3.0), 10.0);
    EXPECT_DOUBLE_EQ(tool.B2P(5.5), 12.5);
    EXPECT_DOUBLE_EQ(tool.P2B(10.0), 3.0);
    EXPECT_DOUBLE_EQ(tool.P2B(0.0), -7.0);
    for (double t : {-1e6, -3.3, 0.0, 1e-9, 17.125, 2.5e8}) {
        EXPECT_NEAR(tool.B2P(tool.P2B(t)), t, 1e-9 * (1.0 + std::fabs(t)));
        EXPECT_NEAR(tool.P2B(tool.B2P(t)), t, 1e-9 * (1.0 + std::fabs(t)));
    }
}

TEST_F(PieceToolTest, AxisZeroIsReadAtEachCall) {
    EXPECT_DOUBLE_EQ(tool.B2P(3.0), 10.0);
    axis.SetTrigPos(-4.0);
    EXPECT_DOUBLE_EQ(tool.B2P(3.0), -4.0);
    double b = -4.0, e = -2.0;  // base 3 .. 5
    const auto pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, 3.0);
    EXPECT_DOUBLE_EQ(pair.second, 5.0);
}

TEST_F(PieceToolTest, RequestInsideRangeIsOnlyShifted) {
    double b = 12.0, e = 20.0;  // base 5 .. 13
    const auto pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, 5.0);
    EXPECT_DOUBLE_EQ(pair.second, 13.0);
    EXPECT_DOUBLE_EQ(b, 5.0);
    EXPECT_DOUBLE_EQ(e, 13.0);
    tool.TransformToPiece(b, e);
    EXPECT_DOUBLE_EQ(b, 12.0);
    EXPECT_DOUBLE_EQ(e, 20.0);
}

TEST_F(PieceToolTest, PartialOverlapIsClippedAtEitherEnd) {
    double b = 2.0, e = 17.0;  // base -5 .. 10
    auto pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, -5.0);
    EXPECT_DOUBLE_EQ(pair.second, 10.0);
    EXPECT_DOUBLE_EQ(b, 0.0);
    EXPECT_DOUBLE_EQ(e, 10.0);
    // Back in piece time, the caller sees the clip.
    tool.TransformToPiece(b, e);
    EXPECT_DOUBLE_EQ(b, 7.0);
    EXPECT_DOUBLE_EQ(e, 17.0);

    b = 100.0;  // base 93 .. 113
    e = 120.0;
    pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, 93.0);
    EXPECT_DOUBLE_EQ(pair.second, 113.0);
    EXPECT_DOUBLE_EQ(b, 93.0);
    EXPECT_DOUBLE_EQ(e, 100.0);
}

TEST_F(PieceToolTest, CoveringRequestKeepsItsColumnsAndClipsTheData) {
    double b = -50.0, e = 250.0;  // base -57 .. 243
    const auto pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, -57.0);
    EXPECT_DOUBLE_EQ(pair.second, 243.0);
    EXPECT_DOUBLE_EQ(b, 0.0);
    EXPECT_DOUBLE_EQ(e, 100.0);
}

TEST_F(PieceToolTest, RequestOutsideRangeBecomesEmptyInPieceTime) {
    for (auto [b0, e0] : {std::pair{-40.0, -20.0}, std::pair{150.0, 160.0}}) {
        double b = b0, e = e0;
        const auto pair = tool.TransformToBase(b, e);
        EXPECT_DOUBLE_EQ(pair.first, b0 - 7.0);
        EXPECT_DOUBLE_EQ(pair.second, e0 - 7.0);
        EXPECT_EQ(b, b0);
        EXPECT_EQ(e, b0);
    }
}

TEST_F(PieceToolTest, TouchingTheRangeIsNoOverlap) {
    double b = 0.0, e = 7.0;  // base -7 .. 0: ends where the range begins
    tool.TransformToBase(b, e);
    EXPECT_EQ(b, 0.0);
    EXPECT_EQ(e, 0.0);

    b = 107.0;  // base 100 .. 110: starts where the range ends
    e = 117.0;
    tool.TransformToBase(b, e);
    EXPECT_EQ(b, 107.0);
    EXPECT_EQ(e, 107.0);
}

TEST_F(PieceToolTest, EmptyOrReversedSpansGiveEmpty) {
    double b = 20.0, e = 20.0;
    tool.TransformToBase(b, e);
    EXPECT_EQ(b, 20.0);
    EXPECT_EQ(e, 20.0);

    b = 30.0;
    e = 20.0;
    const auto pair = tool.TransformToBase(b, e);
    EXPECT_DOUBLE_EQ(pair.first, 23.0);
    EXPECT_DOUBLE_EQ(pair.second, 13.0);
    EXPECT_EQ(b, 30.0);
    EXPECT_EQ(e, 30.0);

    // An empty or reversed base range lets nothing through.
    for (auto [rb, re] : {std::pair{0.0, 0.0}, std::pair{50.0, 40.0}}) {
        tool.SetBaseRange(rb, re);
        b = -100.0;
        e = 100.0;
        tool.TransformToBase(b, e);
        EXPECT_EQ(b, -100.0);
        EXPECT_EQ(e, -100.0);
    }
}

TEST_F(PieceToolTest, NotANumberGivesAnEmptySpan) {
    tool.SetZero(std::numeric_limits<double>::quiet_NaN());
    double b = 12.0, e = 20.0;
    tool.TransformToBase(b, e);
    EXPECT_EQ(b, 12.0);
    EXPECT_EQ(e, 12.0);
}

TEST_F(PieceToolTest, CopyIsIndependentPlainData) {
    const PieceTool copy = tool;
    tool.SetZero(0.0);
    tool.SetBaseRange(1.0, 2.0);
    tool.SetAxis(nullptr);
    EXPECT_EQ(copy.Axis(), &axis);
    EXPECT_EQ(copy.Zero(), 3.0);
    EXPECT_EQ(copy.BaseBegin(), 0.0);
    EXPECT_EQ(copy.BaseEnd(), 100.0);
    EXPECT_DOUBLE_EQ(copy.B2P(3.0), 10.0);
}

// ---------------------------------------------------------------------------------------
// CreatePiece and the piece item

TEST(CreatePiece, RefusesBadArguments) {
    auto data = MakeDataset();
    auto axis = MakeItem("AXIS", "display");
    auto bare = MakeItem("PieceTestDataset", "bare");  // no "sizeAxis"
    const double nan = std::numeric_limits<double>::quiet_NaN();

    EXPECT_EQ(CreatePiece(nullptr, {0.0, 1.0}, 0.0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {0.0, 1.0}, 0.0, nullptr), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {1.0, 1.0}, 0.0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {2.0, 1.0}, 0.0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(data.get(), {nan, 1.0}, 0.0, axis.get()), nullptr);
    EXPECT_EQ(CreatePiece(bare.get(), {0.0, 1.0}, 0.0, axis.get()), nullptr);

    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.0, 1.0}, 0.0, axis.get()));
    ASSERT_NE(piece, nullptr);
    EXPECT_EQ(piece->GetItemType(), Scope()->GetLocalItemType("PieceDataset", false));
}

TEST(PieceItem, ChildItems) {
    auto data = MakeDataset();
    auto axis = MakeItem("AXIS", "display");
    // Children a piece must not hand out even when its dataset has them.
    data->AddChildItem(CreateEventCtr().release(), "__base", true);
    data->AddChildItem(CreateEventCtr().release(), "__local", true);
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.0, 1.0}, 0.0, axis.get()));
    ASSERT_NE(piece, nullptr);

    EXPECT_EQ(piece->GetChildItem("sizeAxis"), axis.get());  // the piece's axis, not the dataset's
    EXPECT_EQ(piece->GetChildItem("dataAxis"), data->GetChildItem("dataAxis"));
    EXPECT_NE(piece->GetChildItem("dataAxis"), nullptr);
    EXPECT_EQ(piece->GetChildItem("__base"), nullptr);
    EXPECT_EQ(piece->GetChildItem("__local"), nullptr);
    EXPECT_EQ(piece->GetChildItem("nothing"), nullptr);
}

TEST(PieceItem, UnconfiguredPieceIsInert) {
    auto piece = MakeItem("PieceDataset", "inert");
    ASSERT_NE(piece, nullptr);
    EXPECT_EQ(piece->GetChildItem("sizeAxis"), nullptr);
    EXPECT_EQ(piece->GetChildItem("dataAxis"), nullptr);
    EXPECT_FALSE(QueryInterface<TestPieceReader>(piece.get()));
    // The piece still answers for itself.
    Ctr<DataPieceWrapper> wrapper = QueryInterface<DataPieceWrapper>(piece.get());
    ASSERT_TRUE(wrapper);
    EXPECT_EQ(wrapper->GetRange(), nullptr);
    EXPECT_EQ(QueryInterface<IBaseCtr>(piece.get()).get(), piece.get());
    EXPECT_TRUE(QueryInterface<IItemXmlInit>(piece.get()));
}

TEST(PieceItem, ReaderGetsRangeAxisAndZero) {
    auto data = MakeDataset();
    auto axis = MakeItem("AXIS", "display");
    AxisOf(axis.get())->SetTrigPos(4.0);
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.25, 0.75}, 1.5, axis.get()));
    ASSERT_NE(piece, nullptr);
    Ctr<DataPieceWrapper> wrapper = QueryInterface<DataPieceWrapper>(piece.get());
    ASSERT_TRUE(wrapper);
    EXPECT_DOUBLE_EQ(wrapper->ZeroOffset(), 1.5 - 4.0);

    Ctr<TestPieceReader> first = QueryInterface<TestPieceReader>(piece.get());
    ASSERT_TRUE(first);
    const TestPieceReader* reader = first.get();
    EXPECT_EQ(reader->tool.Axis(), AxisOf(axis.get()));
    EXPECT_EQ(reader->tool.BaseBegin(), 0.25);
    EXPECT_EQ(reader->tool.BaseEnd(), 0.75);
    EXPECT_DOUBLE_EQ(reader->tool.Zero(), 1.5);
    EXPECT_EQ(reader->mode, IPieceReader::kTimeModePiece);
    EXPECT_EQ(reader->zero_calls, 1);
    // Base 1.5 shows at the axis's zero position.
    EXPECT_DOUBLE_EQ(reader->tool.B2P(1.5), 4.0);

    // A later reader follows the axis; the one taken before keeps its zero.
    AxisOf(axis.get())->SetTrigPos(6.0);
    Ctr<TestPieceReader> second = QueryInterface<TestPieceReader>(piece.get());
    ASSERT_TRUE(second);
    EXPECT_DOUBLE_EQ(second.get()->tool.Zero(), 3.5);
    EXPECT_DOUBLE_EQ(reader->tool.Zero(), 1.5);
    EXPECT_NE(second.get(), reader);
}

TEST(PieceItem, OnlyPieceReadersAreHandedOut) {
    auto data = MakeDataset();
    auto axis = MakeItem("AXIS", "display");
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.0, 1.0}, 0.0, axis.get()));
    ASSERT_NE(piece, nullptr);
    Ctr<TestDataset> dataset = QueryInterface<TestDataset>(data.get());
    ASSERT_TRUE(dataset);
    const int before = dataset->queries;

    EXPECT_FALSE(QueryInterface<PlainReader>(piece.get()));
    EXPECT_TRUE(QueryInterface<PlainReader>(data.get()));  // the dataset does have one
    EXPECT_FALSE(QueryInterface<IDatasetAxis>(piece.get()));
    EXPECT_GE(dataset->queries, before + 2);  // both went to the dataset
}

TEST(PieceItem, AxisItemWithoutAnAxisGivesPassThroughReaders) {
    auto data = MakeDataset();
    std::unique_ptr<IBaseCtr> not_axis = CreateEventCtr();
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.0, 1.0}, 2.0, not_axis.get()));
    ASSERT_NE(piece, nullptr);
    EXPECT_DOUBLE_EQ(QueryInterface<DataPieceWrapper>(piece.get())->ZeroOffset(), 2.0);
    Ctr<TestPieceReader> reader = QueryInterface<TestPieceReader>(piece.get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.Axis(), nullptr);
    double b = 5.0, e = 9.0;  // outside the base range, yet kept: no axis, no clip
    reader->tool.TransformToBase(b, e);
    EXPECT_EQ(b, 5.0);
    EXPECT_EQ(e, 9.0);
}

TEST(PieceItem, ReconfigurationReplacesTheRange) {
    auto data = MakeDataset();
    auto axis = MakeItem("AXIS", "display");
    std::unique_ptr<IBaseCtr> piece(CreatePiece(data.get(), {0.0, 1.0}, 0.0, axis.get()));
    Ctr<DataPieceWrapper> wrapper = QueryInterface<DataPieceWrapper>(piece.get());
    ASSERT_TRUE(wrapper);
    wrapper->Configure(data.get(), axis.get(), {3.0, 8.0}, 0.0);
    ASSERT_NE(wrapper->GetRange(), nullptr);
    EXPECT_EQ(wrapper->GetRange()->begin, 3.0);
    Ctr<TestPieceReader> reader = QueryInterface<TestPieceReader>(piece.get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.BaseBegin(), 3.0);
    EXPECT_EQ(reader->tool.BaseEnd(), 8.0);
}

// ---------------------------------------------------------------------------------------
// Configuration from XML

// Makes the items of xml; the last one is the piece.
std::vector<std::unique_ptr<IBaseCtr>> MakeFromXml(const std::string& piece_init) {
    const std::string xml =
        "<items>"
        "<item name='xwave' type='PieceTestDataset'>"
        "  <item name='sizeAxis' type='AXIS'/><item name='dataAxis' type='AXIS'/>"
        "</item>"
        "<item name='xpiece' type='PieceDataset' init='" +
        piece_init +
        "'/>"
        "</items>";
    return CreateItemsFromXml(Scope(), xml);
}

TEST(PieceXml, InitConfiguresThePiece) {
    auto items = MakeFromXml("data=xwave; axis=xwave.sizeAxis; range=0.5, 2.5 ;zero=1e-3");
    ASSERT_EQ(items.size(), 2u);
    IBaseCtr* axis = items[0]->GetChildItem("sizeAxis");
    IBaseCtr* piece = items[1].get();
    EXPECT_EQ(piece->GetChildItem("sizeAxis"), axis);
    Ctr<TestPieceReader> reader = QueryInterface<TestPieceReader>(piece);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.BaseBegin(), 0.5);
    EXPECT_EQ(reader->tool.BaseEnd(), 2.5);
    EXPECT_DOUBLE_EQ(reader->tool.Zero(), 1e-3);
    EXPECT_EQ(reader->tool.Axis(), AxisOf(axis));
}

TEST(PieceXml, KeysIgnoreCaseAndUnknownItemsAreSkipped) {
    auto items = MakeFromXml("DATA=xwave;Axis=xwave.sizeAxis;colour=red;lonely;range=1,2");
    ASSERT_EQ(items.size(), 2u);
    Ctr<TestPieceReader> reader = QueryInterface<TestPieceReader>(items[1].get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.BaseBegin(), 1.0);
    EXPECT_EQ(reader->tool.BaseEnd(), 2.0);
    EXPECT_EQ(reader->tool.Zero(), 0.0);
}

TEST(PieceXml, RangeWithoutCommaAndBadNumbersCountAsZero) {
    auto items = MakeFromXml("data=xwave;axis=xwave.sizeAxis;range=5;zero=abc");
    ASSERT_EQ(items.size(), 2u);
    Ctr<TestPieceReader> reader = QueryInterface<TestPieceReader>(items[1].get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.BaseBegin(), 0.0);
    EXPECT_EQ(reader->tool.BaseEnd(), 0.0);
    EXPECT_EQ(reader->tool.Zero(), 0.0);

    items.clear();  // names are taken until the items go
    items = MakeFromXml("data=xwave;axis=xwave.sizeAxis;range=x,4");
    ASSERT_EQ(items.size(), 2u);
    reader = QueryInterface<TestPieceReader>(items[1].get());
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->tool.BaseBegin(), 0.0);
    EXPECT_EQ(reader->tool.BaseEnd(), 4.0);
}

TEST(PieceXml, MissingItemLeavesThePieceInert) {
    for (const char* init : {"data=xwave;range=0,1", "data=xwave;axis=nowhere;range=0,1",
                             "data=nothing;axis=xwave.sizeAxis;range=0,1", ""}) {
        auto items = MakeFromXml(init);
        ASSERT_EQ(items.size(), 2u) << init;  // the piece is still made
        EXPECT_FALSE(QueryInterface<TestPieceReader>(items[1].get())) << init;
        EXPECT_EQ(items[1]->GetChildItem("dataAxis"), nullptr) << init;
    }
}

// ---------------------------------------------------------------------------------------

TEST(BlockDrawReader, GetDataFailsAndTouchesNothing) {
    IItemType* type = Scope()->GetLocalItemType("PieceDataset", false);
    IBlockDrawReader reader(nullptr, type);
    EXPECT_EQ(reader.Type(), type);
    EXPECT_EQ(reader.Storage(), nullptr);
    std::vector<BlockDrawStruct> out(3);
    EXPECT_FALSE(reader.GetData(0.0, 1.0, 100, out));
    EXPECT_EQ(out.size(), 3u);
}

}  // namespace
