#include "memory_disk.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fatvol::test {

namespace {

// Splits a range at page borders: step(page index, offset within the page, bytes done, bytes).
template <typename Step>
void ForEachPage(const MemoryDisk& disk, uint64_t position, uint64_t count, Step step) {
    if (position > disk.sizeBytes || count > disk.sizeBytes - position) {
        throw std::out_of_range("test access outside the disk at " + std::to_string(position));
    }
    for (uint64_t done = 0, part = 0; done < count; done += part) {
        const uint64_t offset = (position + done) % MemoryDisk::pageBytes;
        part = std::min(count - done, MemoryDisk::pageBytes - offset);
        step((position + done) / MemoryDisk::pageBytes, offset, done, part);
    }
}

}  // namespace

void MemoryDisk::Read(uint64_t positionBytes, void* buffer, uint64_t count) const {
    auto* out = static_cast<uint8_t*>(buffer);
    ForEachPage(*this, positionBytes, count,
                [&](uint64_t index, uint64_t offset, uint64_t done, uint64_t part) {
                    if (const auto page = pages.find(index); page == pages.end()) {
                        std::memset(out + done, fillByte, part);
                    } else {
                        std::memcpy(out + done, page->second->data() + offset, part);
                    }
                });
}

std::vector<uint8_t> MemoryDisk::Read(uint64_t positionBytes, uint64_t count) const {
    std::vector<uint8_t> bytes(count);
    Read(positionBytes, bytes.data(), count);
    return bytes;
}

void MemoryDisk::Write(uint64_t positionBytes, const void* data, uint64_t count) {
    const auto* in = static_cast<const uint8_t*>(data);
    ForEachPage(*this, positionBytes, count,
                [&](uint64_t index, uint64_t offset, uint64_t done, uint64_t part) {
                    std::memcpy(WritablePage(index).data() + offset, in + done, part);
                });
}

void MemoryDisk::Fill(uint64_t positionBytes, uint64_t count, uint8_t value) {
    const auto whole = std::make_shared<Page>();  // serves every page that is filled entirely
    whole->fill(value);
    ForEachPage(*this, positionBytes, count,
                [&](uint64_t index, uint64_t offset, uint64_t, uint64_t part) {
                    if (part < pageBytes) {
                        std::memset(WritablePage(index).data() + offset, value, part);
                    } else if (value == fillByte) {
                        pages.erase(index);
                    } else {
                        pages[index] = whole;
                    }
                });
}

MemoryDisk::Page& MemoryDisk::WritablePage(uint64_t index) {
    std::shared_ptr<Page>& page = pages[index];
    if (!page) {
        page = std::make_shared<Page>();
        page->fill(fillByte);
    } else if (page.use_count() > 1) {
        page = std::make_shared<Page>(*page);
    }
    return *page;
}

void MemoryDisk::Save(const std::string& path) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (uint64_t at = 0; at < sizeBytes; at += pageBytes) {
        if (fillByte != 0 || pages.contains(at / pageBytes)) {
            const auto bytes = Read(at, std::min<uint64_t>(pageBytes, sizeBytes - at));
            file.seekp(static_cast<std::streamoff>(at));
            file.write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
        }
    }
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
    std::filesystem::resize_file(path, sizeBytes);
}

int MemoryDisk::Transfer(const Call& call, unsigned char* buffer, unsigned int sectorBytes) {
    if (keepCalls) {
        calls.push_back(call);
    }
    const uint64_t unit = call.kind >= CallKind::ReadSectors ? sectorBytes : 1;
    const uint64_t count = call.count * unit;
    const auto units = static_cast<uint64_t>(call.position);
    if (call.position < 0 || units > sizeBytes / unit || count > sizeBytes - units * unit) {
        ++counters.outsideAccesses;
        return -3;
    }
    const uint64_t position = units * unit;
    const bool isAligned =
        call.kind == CallKind::ReadAligned || call.kind == CallKind::WriteAligned;
    const bool isWhole =
        clusterBytes == 0 || (position >= dataPosition && count % clusterBytes == 0 &&
                              (position - dataPosition) % clusterBytes == 0);
    counters.misalignedAccesses += isAligned && !isWhole;
    const int status = PlannedStatus(call);
    if (IsWrite(call.kind)) {
        const uint64_t stored = status >= 0 ? count : failure.tornWrites ? count / 2 : 0;
        counters.bytesWritten += stored;
        if (keepWrites && stored != 0) {
            writes.push_back({position, {buffer, buffer + stored}});
        }
        Write(position, buffer, stored);
    } else if (status >= 0) {
        Read(position, buffer, count);
    } else {
        std::memset(buffer, 0xDB, count);  // nobody may rely on what a failed read leaves
    }
    return status;
}

int MemoryDisk::PlannedStatus(const Call& call) {
    if (const int status = beforeCall ? beforeCall(call) : 0; status < 0) {
        return status;
    }
    const bool isCounted = IsWrite(call.kind) ? failure.writes : failure.reads;
    if (failure.countdown == 0 || !isCounted || --failure.countdown != 0) {
        return successStatus;
    }
    failure.countdown = failure.onwards;
    return failure.status;
}

}  // namespace fatvol::test
