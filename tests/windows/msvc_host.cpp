// A host with the names, vtables and calls of MSVC, and no runtime but the C library that every
// Windows has: msvc_host IMAGE lists the root directory.
#include "fatvol.h"

extern "C" {

struct CFile;
CFile* fopen(const char* path, const char* mode);
int fclose(CFile* file);
int _fseeki64(CFile* file, long long position, int origin);
unsigned long long fread(void* buffer, unsigned long long size, unsigned long long count,
                         CFile* file);
void* malloc(unsigned long long size);
void free(void* memory);
int printf(const char* format, ...);
int __getmainargs(int* argc, char*** argv, char*** environment, int expands, int* startInfo);
[[noreturn]] void exit(int code);

int _fltused = 0;
int _purecall() {
    exit(3);
}
}

namespace {

int destroyed = 0, freed = 0;

}  // namespace

void* operator new(unsigned long long size) {
    return malloc(size);
}
void operator delete(void* memory) noexcept {
    ++freed;
    free(memory);
}
void operator delete(void* memory, unsigned long long) noexcept {
    operator delete(memory);
}

namespace {

class ImageStorage : public CFatStorage {
public:
    ~ImageStorage() override { ++destroyed; }

    // The first new virtual function of the class stands in the slot through which the library
    // deletes it: its compiler gives a destructor two slots, this one gives it one.
    virtual void DeleteForLibrary() { delete this; }

    int OpenDevice(void* path) override {
        file = fopen(static_cast<const char*>(path), "rb");
        return file != nullptr ? 0 : -1;
    }
    void PrepareDevice() override {
        GetMpbProc = _GetMpb;
        ReadBytesProc = ReadBytesAlignedProc = Read;
        ReadSectorsProc = ReadAtSector;
        WriteBytesProc = WriteBytesAlignedProc = WriteSectorsProc = Refuse;
    }
    bool CloseDevice() override { return fclose(file) == 0; }

private:
    static int Read(CVolumeStorage* storage, unsigned char* buffer, long long position,
                    unsigned int count) {
        CFile* const file = static_cast<ImageStorage*>(storage)->file;
        _fseeki64(file, position, 0);
        return fread(buffer, 1, count, file) == count ? 0 : -1;
    }
    static int ReadAtSector(CVolumeStorage* storage, unsigned char* buffer, long long position,
                            unsigned int count) {
        const unsigned int size = storage->BytesPerSector;
        return Read(storage, buffer, position * size, count * size);
    }
    static int Refuse(CVolumeStorage*, unsigned char*, long long, unsigned int) { return -1; }

    CFile* file = nullptr;
};

}  // namespace

extern "C" void Start() {
    int argc = 0, startInfo = 0;
    char **argv = nullptr, **environment = nullptr;
    __getmainargs(&argc, &argv, &environment, 0, &startInfo);
    Fat_LibInitialize();
    FatVolume* const volume = Fat_Mount(new ImageStorage, argv[1]);
    FatFileInfo info = {};
    const int find = Fat_FindFirstRootFile(&info);
    for (bool found = find >= 0; found; found = Fat_FindNextFile(find, &info)) {
        printf("%u %ls\n", info.sizeLow, reinterpret_cast<const wchar_t*>(info.longName));
    }
    Fat_CloseFindHandle(find);
    const bool isUnmounted = Fat_Unmount(volume);
    printf("destroyed %d, freed %d\n", destroyed, freed);
    exit(Fat_LibTerminate() && isUnmounted ? 0 : 1);
}
