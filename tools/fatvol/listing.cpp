#include "listing.h"

#include "fatvol.h"

namespace tool {

namespace {

class FindHandle {
public:
    explicit FindHandle(int handle) : handle_(handle) {}
    FindHandle(const FindHandle&) = delete;
    FindHandle& operator=(const FindHandle&) = delete;
    ~FindHandle() { Fat_CloseFindHandle(handle_); }

    bool IsOpen() const { return handle_ >= 0; }
    bool Next(FatFileInfo* info) const { return Fat_FindNextFile(handle_, info); }

private:
    const int handle_;
};

}  // namespace

std::vector<Entry> CollectEntries(const std::u16string& directory) {
    std::vector<Entry> entries;
    FatFileInfo info{};
    const FindHandle find(directory.empty() ? Fat_FindFirstRootFile(&info)
                                            : Fat_FindFirstFile(directory.c_str(), &info));
    bool hasEntry = find.IsOpen();
    while (hasEntry) {
        Entry entry = EntryFromInfo(info);
        if (!IsDotEntry(entry)) {
            entries.push_back(std::move(entry));
        }
        info = {};
        hasEntry = find.Next(&info);
    }
    return entries;
}

}  // namespace tool
