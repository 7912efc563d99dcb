// Lists the root directory of a FAT volume image: first_host IMAGE
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "fatvol.h"

// The volume's bytes come from an image file, which is only read.
class ImageStorage : public CFatStorage {
public:
    int OpenDevice(void* path) override {
        file.open(static_cast<const char*>(path), std::ios::binary);
        return file ? 0 : -1;
    }
    void PrepareDevice() override {
        GetMpbProc = _GetMpb;
        ReadBytesProc = ReadBytesAlignedProc = Read;
        ReadSectorsProc = ReadSectors;
        WriteBytesProc = WriteBytesAlignedProc = WriteSectorsProc = RefuseWrite;
    }
    bool CloseDevice() override {
        file.close();
        return true;
    }

private:
    static int Read(CVolumeStorage* storage, unsigned char* buffer, long long position,
                    unsigned int count) {
        std::ifstream& file = static_cast<ImageStorage*>(storage)->file;
        file.clear();
        file.seekg(position);
        file.read(reinterpret_cast<char*>(buffer), count);
        return file ? 0 : -1;
    }
    static int ReadSectors(CVolumeStorage* storage, unsigned char* buffer, long long position,
                           unsigned int count) {
        const unsigned int size = storage->BytesPerSector;
        return Read(storage, buffer, position * size, count * size);
    }
    static int RefuseWrite(CVolumeStorage*, unsigned char*, long long, unsigned int) { return -1; }

    std::ifstream file;
};

// A name field is zero-terminated only when the name leaves room for it.
std::string Utf8(const char16_t* units, std::size_t capacity) {
    const std::u16string name(units, capacity);
    try {
        const auto utf8 = std::filesystem::path(name.substr(0, name.find(u'\0'))).u8string();
        return {utf8.begin(), utf8.end()};
    } catch (const std::exception&) {
        return "?";  // no valid UTF-16
    }
}

int main(int argc, char** argv) {
    Fat_LibInitialize();
    FatVolume* volume = argc == 2 ? Fat_Mount(new ImageStorage, argv[1]) : nullptr;
    if (volume == nullptr) {
        std::fprintf(stderr, "usage: first_host IMAGE (a FAT volume)\n");
        Fat_LibTerminate();
        return 1;
    }
    FatFileInfo info = {};
    const int find = Fat_FindFirstRootFile(&info);
    for (bool found = find >= 0; found; found = Fat_FindNextFile(find, &info)) {
        const std::string name =
            info.longName[0] != 0 ? Utf8(info.longName, 260) : Utf8(info.shortName, 14);
        std::printf("%10u  %s\n", info.sizeLow, name.c_str());
    }
    Fat_CloseFindHandle(find);
    Fat_Unmount(volume);
    return Fat_LibTerminate() ? 0 : 1;
}
