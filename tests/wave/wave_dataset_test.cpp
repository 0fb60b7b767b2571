// The wave dataset: storages, pushes, the item face, clear against a reader's lock.

#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "module/type_registration.h"
#include "host/item_binding.h"
#include "host/xml_items.h"
#include "host/local_source.h"
#include "storage/storage_base.h"
#include "support/test_wave.h"
#include "wave/basic_wave_dataset.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

namespace {

// The module's scope of the test program (a class is registered once per process, so
// every test file creates its wave items there), with the long double wave added.
CLocalSource& Scope() {
    static CLocalSource* scope = [] {
        CLocalSource* s = &testing_support::ModuleScope();
        RegisterClassType<BasicWaveDataSet<LongDouble>>("WAVEDATASET[LONGDOUBLE]", s);
        return s;
    }();
    return *scope;
}

TEST(WaveDataSet, StoragesOfTheElementTypeAndPushesToEachOfThem) {
    BasicWaveDataSet<int8_t> bytes;
    BasicWaveDataSet<LongDouble> wide;
    EXPECT_EQ(std::make_tuple(bytes.GetStorage("Wave")->UnitSize(), bytes.GetStorage("Index")->UnitSize(),
                              bytes.GetStorage("Area")->UnitSize(), wide.GetStorage("Wave")->UnitSize(),
                              wide.GetStorage("Index")->UnitSize()),
              std::make_tuple(1u, 2u, 48u, 8u, 16u));
    BasicWaveDataSet<float> dataset;
    const float samples[4] = {1, 2, 3, 4};
    const MinMaxData<float> column{1, 4};
    const ValidDataArea area{0, 0, 0, 0, 0, 3};
    EXPECT_EQ(dataset.Push(samples, 4), 4u);
    EXPECT_EQ(dataset.Push(samples, 0), 0u);
    EXPECT_EQ(dataset.Push(static_cast<const float*>(nullptr), 10), 0u);
    EXPECT_EQ(dataset.Push(&column, 1), 1u);
    EXPECT_EQ(dataset.Push(&area, 1), 1u);
    for (auto [id, count] : {std::pair{"Wave", 4u}, {"Index", 1u}, {"Area", 1u}})
        EXPECT_EQ(dataset.GetStorage(id)->Count(), count) << id;
    RawData view = dataset.RequestRawData(1, 2);
    ASSERT_GE(view.Count(), 2u);
    EXPECT_EQ(static_cast<const float*>(view.Ptr())[0], 2.0f);  // samples, never columns
}

TEST(WaveDataSet, ItemFaceAnswersAttributesFillersAndCommands) {
    std::unique_ptr<IBaseCtr> item(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "wave"));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->GetAttribute("elementtype"), "f32");
    EXPECT_EQ(item->GetAttribute("Other"), "");
    EXPECT_EQ(std::unique_ptr<IBaseCtr>(CreateItemByType(&Scope(), "WAVEDATASET[LONGDOUBLE]", "wide"))->GetAttribute("ElementType"),
              "long double");
    ASSERT_TRUE(QueryInterface<StructFiller<MinMaxData<float>>>(item.get()) && QueryInterface<StructFiller<ValidDataArea>>(item.get()));
    EXPECT_FALSE(QueryInterface<StructFiller<double>>(item.get()));
    const float values[3] = {1, 2, 3};
    EXPECT_EQ(QueryInterface<StructFiller<float>>(item.get())->Push(values, 3), 3u);
    Ctr<DataSetBase> base = QueryInterface<DataSetBase>(item.get());
    EXPECT_EQ(base->GetStorage("Wave")->Count(), 3u);
    EXPECT_TRUE(item->OnCMD("lock", nullptr));
    EXPECT_EQ(base->LockCount(), 1u);
    EXPECT_TRUE(item->OnCMD("UNLOCK", nullptr));
    EXPECT_EQ(base->LockCount(), 0u);
    EXPECT_FALSE(item->OnCMD("no such command", nullptr));
    EXPECT_TRUE(QueryInterface<WaveDatasetParameters>(item->GetChildItem("WaveParam")));
}

TEST(WaveDataSet, AnXmlDefinitionWithAxesGivesTheToolsItsPeriods) {
    auto items = CreateItemsFromXml(&Scope(), R"xml(
        <items>
          <item name="capture" type="WAVEDATASET[FLOAT]" config="disable_throttle">
            <item name="sizeAxis" type="AXIS" init="ratio=1e-6,index_step=100"/>
            <item name="dataAxis" type="AXIS"/>
          </item>
        </items>)xml");
    ASSERT_EQ(items.size(), 1u);
    __internal::DataSetTool tool(items[0].get());
    ASSERT_NE(tool.SizeAxis(), nullptr);
    ASSERT_NE(tool.DataAxis(), nullptr);
    EXPECT_NEAR(tool.GetSampleTime(), 1e-6, 1e-18);
    EXPECT_NEAR(tool.GetIndexStepTime(), 1e-4, 1e-16);
    ASSERT_NE(tool.GetDataParameters(), nullptr);
    EXPECT_TRUE(tool.Lock());
    EXPECT_EQ(QueryInterface<DataSetBase>(items[0].get())->LockCount(), 1u);
    EXPECT_TRUE(tool.UnLock());
}

TEST(WaveDataSet, ClearFiresPostClearAtOnceAndAfterClearWhenTheReaderUnlocks) {
    std::unique_ptr<IBaseCtr> item(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "wave"));
    Ctr<DataSetBase> base = QueryInterface<DataSetBase>(item.get());
    const float values[5] = {1, 2, 3, 4, 5};
    QueryInterface<StructFiller<float>>(item.get())->Push(values, 5);

    std::atomic<int> post{0}, after{0};
    std::atomic<uint64_t> seen_at_post{0};
    item->SubscribeEvent("PostClear", MakeEventHandler([&](IBaseCtr*) {
                             seen_at_post = base->GetStorage("Wave")->Count();
                             ++post;
                         }));
    item->SubscribeEvent("AfterClear", MakeEventHandler([&](IBaseCtr*) { ++after; }));

    item->OnCMD("lock", nullptr);  // a reader holds the data
    std::thread clearing([&] { item->OnCMD("WaveClear", nullptr); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (post == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    EXPECT_EQ(post.load(), 1);
    EXPECT_EQ(seen_at_post.load(), 5u);  // subscribers still see the data
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(after.load(), 0);
    EXPECT_EQ(base->GetStorage("Wave")->Count(), 5u);
    item->OnCMD("unlock", nullptr);
    clearing.join();
    EXPECT_EQ(after.load(), 1);
    for (const char* id : {"Wave", "Index", "Area"}) EXPECT_EQ(base->GetStorage(id)->Count(), 0u);
    EXPECT_EQ(QueryInterface<StructFiller<float>>(item.get())->Push(values, 1), 1u);  // position 0 again
}

}  // namespace
