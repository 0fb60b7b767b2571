#pragma once
// A wave dataset saved with a project, the way a host saves one: the dataset's record
// (which storage lies in which file, the axes, the data state) in <folder>/project.xml
// under "datasets/<name>", its type name beside it, and the cache files the record names
// copied into <folder>/__old__/. A later process opens the folder as its project and
// loads the record into a new item: the files are read in place, read-only.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class IBaseCtr;
class ILocalSource;

// Saves the wave dataset item under name. The item must have the attribute
// "exportable" set to "1". False with a reason in error.
bool SaveWaveDataset(IBaseCtr* item, const std::string& name, const std::filesystem::path& folder,
                     std::string& error);

// The names of the datasets saved in folder, in name order; empty with a reason in error
// when folder holds no readable project.
std::vector<std::string> SavedWaveDatasets(const std::filesystem::path& folder, std::string& error);

// Makes folder the project folder of this process and loads the dataset saved under
// name into a new item of its type (with the two axes "sizeAxis" and "dataAxis"),
// created in scope. Null with a reason in error. Call it before the process creates
// any other cache file.
std::unique_ptr<IBaseCtr> LoadWaveDataset(ILocalSource* scope, const std::filesystem::path& folder,
                                          const std::string& name, std::string& error);
