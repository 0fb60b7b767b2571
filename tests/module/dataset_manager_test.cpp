// The static dataset manager: datasets of the configurable family with their listener,
// the channel factories it forwards to, and the swap of two datasets' channels.

#include "dataset/dataset_base_ex.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "module/dataset_manager.h"
#include "module_test_scope.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/storage_base.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class Listener : public IDataSetEx {
public:
    void OnDataChanged() override {}
    void OnClear() override {}
    void PostClear() override {}
    std::string MainStorageId() override { return "main"; }
};

IVellumDataSetMgrEx& Manager() {
    module_tests::Scope();  // registers the types and publishes the manager
    auto* manager = Vellum::MagicCast<IVellumDataSetMgrEx>(GetStaticInterface(VellumTypeOf<IVellumDataSetMgrEx>()));
    EXPECT_NE(manager, nullptr);
    return *manager;
}

TEST(DataSetManager, MakesDatasetsWithTheirListener) {
    Listener listener;
    IDataSetBase* dataset = nullptr;
    std::unique_ptr<IBaseCtr> item(Manager().CreateDataSet(&listener, &dataset));
    ASSERT_TRUE(item);
    Ctr<DataSetBaseEx> ex = QueryInterface<DataSetBaseEx>(item.get());
    ASSERT_TRUE(ex);
    EXPECT_EQ(dataset, static_cast<IDataSetBase*>(ex.get()));
    EXPECT_EQ(ex->Listener(), &listener);
    // The listener names the main storage: an empty id asks for it.
    const double samples[2] = {1, 2};
    dataset->BindStorage("main", Manager().CreateMemCache(samples, sizeof samples), 8, "__def__");
    EXPECT_EQ(dataset->GetStorage(""), dataset->GetStorage("main"));
    EXPECT_EQ(dataset->GetStorage("")->Count(), 2u);

    std::unique_ptr<IBaseCtr> plain(Manager().CreateDataSet(nullptr, nullptr));
    ASSERT_TRUE(QueryInterface<DataSetBaseEx>(plain.get()));
}

TEST(DataSetManager, SwapsTheChannelsOfDatasetsWithTheSameStorages) {
    const double values[3] = {1, 2, 3};
    std::unique_ptr<IBaseCtr> a(Manager().CreateDataSet(nullptr, nullptr));
    std::unique_ptr<IBaseCtr> b(Manager().CreateDataSet(nullptr, nullptr));
    std::unique_ptr<IBaseCtr> c(Manager().CreateDataSet(nullptr, nullptr));
    auto ca = CreateMemCache(values, 8), cb = CreateMemCache(values, 16), cc = CreateMemCache(values, 24);
    auto bind = [](IBaseCtr* item, const char* id, std::shared_ptr<IDeviceChannel> channel) {
        return dynamic_cast<CStorage*>(
            QueryInterface<IDataSetBase>(item)->BindStorage(id, std::move(channel), 8, "__def__").get());
    };
    CStorage* sa = bind(a.get(), "s", ca);
    CStorage* sb = bind(b.get(), "s", cb);
    CStorage* sc = bind(c.get(), "other", cc);
    ASSERT_TRUE(sa && sb && sc);

    // The result is false also when the swap was made.
    EXPECT_FALSE(Manager().ItemSwap(a.get(), b.get()));
    EXPECT_EQ(sa->Channel(), cb);
    EXPECT_EQ(sb->Channel(), ca);
    EXPECT_FALSE(Manager().ItemSwap(a.get(), c.get()));  // other ids: nothing moves
    EXPECT_EQ(sa->Channel(), cb);
    EXPECT_EQ(sc->Channel(), cc);
    std::unique_ptr<IBaseCtr> plain = CreateEventCtr();
    EXPECT_FALSE(Manager().ItemSwap(a.get(), plain.get()));
    EXPECT_EQ(sa->Channel(), cb);
}

}  // namespace
