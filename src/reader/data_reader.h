#pragma once
// IDataReader: a cursor over a sequence of fixed-size derived records (validity areas,
// edges, logic runs). A walk places the cursor with GetBeginData, GetEndData or
// GetAppointTimeData and moves it with GetNextData and GetPrevData; each is true when
// a record stands under the cursor, which GetResult then copies out.

class IDataReader {
public:
    virtual ~IDataReader() = default;
    // Records in the sequence; 0 for readers that only walk.
    virtual unsigned long long GetCount() = 0;
    virtual unsigned long long GetCurIndex() = 0;
    virtual bool GetNextData() = 0;
    virtual bool GetPrevData() = 0;
    virtual bool GetEndData() = 0;
    virtual bool GetBeginData() = 0;
    // Places the cursor on the record that belongs to time (seconds).
    virtual bool GetAppointTimeData(double time) = 0;
    // Search parameters; their record depends on the reader.
    virtual void SetupParame(void* parameter) = 0;
    // Copies the current record to record.
    virtual void GetResult(void* record) = 0;
};
