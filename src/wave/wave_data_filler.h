#pragma once
// IWaveDataFiller: an object, given as the child "Filler" of a wave dataset item, that
// fills the dataset on the command "DataRefleshIgnor".

class IBaseCtr;

class IWaveDataFiller {
public:
    virtual ~IWaveDataFiller() = default;
    // Pushes data into the dataset of the item; runs while the dataset's lock is held.
    virtual void Fill(IBaseCtr* dataset) = 0;
};
