#pragma once
// CommonWaveDataSetInit: the item that configures CommonWaveDataSets in place of their
// own XML. Its definition:
//
//   <item name="__InitObject__" type="WaveDatasetInit">
//     <__main__ dtype="FLOAT" vtype="FLOAT" step="100" id="fw">   the main object
//       <storage><Wave type="File;"/></storage>                    as a dataset's own
//       <index><default comment="main"/></index>
//     </__main__>
//     <PublicAttr unit="V" caption="Voltage"/>                     the public attributes
//   </item>
//
// The main object gives the element type ("dtype"), the storages, the indexers and the
// step of the main index ("step", a positive number; otherwise the indexer derives its
// own). "vtype" and "id" are kept for the host. A node without a child "__main__" is
// its own main object. The item "PublicAttr" is made by type (WaveDatasetPublicAttr),
// filled from the node's child "PublicAttr" (empty without one), and becomes an owned
// child of the init item.

#include "common/common_wave_interfaces.h"
#include "host/xml_items.h"

#include <memory>
#include <string>

class CtrVar;
class VellumTypeID;

class CommonWaveDataSetInit : public IWaveDatasetInit, public IItemXmlInit {
public:
    static constexpr const char* kMainObjectName = "__main__";
    static constexpr const char* kPublicAttrName = "PublicAttr";

    CommonWaveDataSetInit();
    ~CommonWaveDataSetInit() override;
    CommonWaveDataSetInit(const CommonWaveDataSetInit&) = delete;
    CommonWaveDataSetInit& operator=(const CommonWaveDataSetInit&) = delete;

    // Reads the definition above. Always true: a missing "PublicAttr" type is logged.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;
    // Sets the type, the storages, the indexers and the step on dataset.
    bool InitDataset(IWaveDataset* dataset, ILocalSource* source) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

    const std::string& DataType() const { return dtype_; }
    const std::string& ValueType() const { return vtype_; }
    const std::string& Id() const { return id_; }
    // The step of the main index, 0 when the definition gives none.
    unsigned int Step() const { return step_; }
    // The item "PublicAttr"; null before the definition was read.
    IBaseCtr* PublicAttributes() const { return public_attr_; }
    // One public attribute, empty if there is no such attribute.
    std::string PublicAttribute(const std::string& name) const;

private:
    std::string dtype_;
    std::string vtype_;
    std::string id_;
    unsigned int step_ = 0;
    bool has_step_ = false;
    pugi::xml_document definition_;  // copies of the "storage" and "index" nodes
    IBaseCtr* public_attr_ = nullptr;
    // The item "PublicAttr" while there is no init item to own it.
    std::unique_ptr<IBaseCtr> own_public_attr_;
};
