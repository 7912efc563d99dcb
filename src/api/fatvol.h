// fatvol: a FAT12/FAT16/FAT32 file-system library.
//
// The host derives a storage class from CFatStorage, hands an object of it to Fat_Mount, and works
// on files through small integer handles. Every byte of the volume passes through that object.
//
// Call Fat_LibInitialize first and Fat_LibTerminate last. The library keeps process-wide state
// without locks: call it from one thread at a time. Every function may be called with any
// arguments at any time; what it cannot do fails and, unless said otherwise, changes nothing.
// Called from within a storage object that the library has called, every function fails.
//
// Paths are zero-terminated UTF-16, relative to the root of the current volume, with backslashes
// between components and at most 259 units. Letter case does not matter. An optional leading and
// a single trailing backslash are accepted. No path names the root directory.
#pragma once

#if defined(FATVOL_STATIC)
#define FATVOL_API
#elif defined(_WIN32)
#if defined(FATVOL_BUILDING)
#define FATVOL_API __declspec(dllexport)
#else
#define FATVOL_API __declspec(dllimport)
#endif
#else
#define FATVOL_API __attribute__((visibility("default")))
#endif

class CVolumeStorage;

// Transfers `count` units at `position`, both counted from the start of the volume, in bytes or
// in sectors as the field that holds the callback says. Zero or positive: done; negative: failed.
using StorageTransferProc = int (*)(CVolumeStorage* storage, unsigned char* buffer,
                                    long long position, unsigned int count);

// Fills the 28-byte media parameter record from a boot sector; normally CFatStorage::_GetMpb.
using StorageGetMpbProc = void (*)(void* bootSector, void* mpb);

// The storage of one volume. A host never derives from this class directly, but from CFatStorage.
// The order of the virtual functions and of the fields is part of the binary interface.
class FATVOL_API CVolumeStorage {
public:
    static const int DEFAULT_DBR_SIZE = 512;
    static const unsigned short MBR_DBR_MAGIC_TAG = 0xAA55;
    static const int SECTOR_MAXSIZE = 2048;

    // Opens the device: called once, first, with the parameter given to Fat_Mount. A negative
    // result refuses the mount.
    virtual int OpenDevice(void* parameter) = 0;

    // Closes the device; the result becomes that of Close.
    virtual bool CloseDevice() = 0;

protected:
    // Whether the first 512 bytes of the volume are a boot sector that can be mounted.
    virtual bool IsDbrOk(void* bootSector) = 0;

    // The sector size in bytes that a boot sector declares.
    virtual unsigned int GetBytesPerSector(void* bootSector) = 0;

public:
    // Called after OpenDevice, immediately before the first read: the last chance to set the
    // seven callbacks, all of which must be set when it returns.
    virtual void PrepareDevice() = 0;

    virtual ~CVolumeStorage();

    unsigned long long HostContext;  // the host's own; the library only copies it
    unsigned char* DbrBuffer;        // first 2048 bytes of the volume, from malloc; freed by Close
    unsigned int SectorShift;        // log2 of BytesPerSector
    unsigned int BytesPerSector;     // 2048 while the boot sector is read, then what it declares

    StorageGetMpbProc GetMpbProc;
    StorageTransferProc ReadBytesProc;          // position and count in bytes, any value
    StorageTransferProc WriteBytesProc;         // position and count in bytes, any value
    StorageTransferProc ReadBytesAlignedProc;   // in bytes: whole clusters at a cluster boundary
    StorageTransferProc WriteBytesAlignedProc;  // in bytes: whole clusters at a cluster boundary
    StorageTransferProc ReadSectorsProc;        // position and count in sectors
    StorageTransferProc WriteSectorsProc;       // position and count in sectors

    // Sets no field: the host does.
    CVolumeStorage();

    // Copies share DbrBuffer with their source.
    CVolumeStorage(const CVolumeStorage& other);
    CVolumeStorage(CVolumeStorage&& other);
    CVolumeStorage& operator=(const CVolumeStorage& other);
    CVolumeStorage& operator=(CVolumeStorage&& other);

    // Opens the device and reads and checks the boot sector. Negative on failure; the boot-sector
    // buffer is then freed, while a device that was opened stays open.
    int Open(void* parameter);

    // Frees DbrBuffer, which is not cleared, and returns the result of CloseDevice.
    bool Close();

protected:
    // Stores a sector size in bytes, and its log2 rounded down (0 for 0 and 1).
    void CaclSectorShift(unsigned int size);

    // Reads the first 2048 bytes of the volume.
    int ReadDbr(void* buffer);

    // Fills a media parameter record from DbrBuffer.
    void GetMpb(void* mpb);

    // Each calls the callback of its name with this object and returns its result.
    int ReadBytes(unsigned char* buffer, long long position, unsigned int count);
    int WriteBytes(unsigned char* buffer, long long position, unsigned int count);
    int ReadBytesAligned(unsigned char* buffer, long long position, unsigned int count);
    int WriteBytesAligned(unsigned char* buffer, long long position, unsigned int count);
    int ReadSectors(unsigned char* buffer, long long position, unsigned int count);
    int WriteSectors(unsigned char* buffer, long long position, unsigned int count);
};

// The class a host derives from: it implements OpenDevice, CloseDevice and PrepareDevice there.
// Allocate the object with new: the library owns it from Fat_Mount on and deletes it.
class FATVOL_API CFatStorage : public CVolumeStorage {
public:
    CFatStorage();
    CFatStorage(const CFatStorage& other);
    CFatStorage(CFatStorage&& other);
    CFatStorage& operator=(const CFatStorage& other);
    CFatStorage& operator=(CFatStorage&& other);
    ~CFatStorage() override;

protected:
    // Accepts the boot sector of a FAT12, FAT16 or FAT32 volume. A 16-bit sector total that is
    // set wins over the 32-bit one, which is then cleared in the buffer.
    bool IsDbrOk(void* bootSector) override;
    unsigned int GetBytesPerSector(void* bootSector) override;

    // Fills the 28-byte media parameter record; the value for GetMpbProc.
    static void _GetMpb(void* bootSector, void* mpb);
};

// A mounted volume; opaque.
struct FatVolume;

// What the library tells of a directory entry. Times are 64-bit counts of 100 nanoseconds since
// 1601-01-01, in the volume's own (local) time, split into two halves.
struct FatFileInfo {
    unsigned int
        attributes;  // 0x01 read-only, 0x02 hidden, 0x04 system, 0x10 directory, 0x20 archive
    unsigned int creationTimeLow;
    unsigned int creationTimeHigh;
    unsigned int lastAccessTimeLow;
    unsigned int lastAccessTimeHigh;
    unsigned int lastWriteTimeLow;
    unsigned int lastWriteTimeHigh;
    unsigned int sizeHigh;     // always 0
    unsigned int sizeLow;      // bytes, as the entry says: 0 for a directory that is sound
    unsigned int reserved[2];  // never written
    // Empty when the entry has no long name. Zero-terminated, but for a name of exactly 260 units.
    char16_t longName[260];
    char16_t shortName[14];  // BASE.EXT or BASE, zero-terminated; empty when it cannot be converted
};

// What the library tells of a mounted volume. Later versions may append fields: a caller's record
// ends where the size that it was compiled with says.
struct FatVolumeInfo {
    unsigned int size;     // set by the caller: sizeof(FatVolumeInfo)
    unsigned int fatType;  // 12, 16 or 32
    unsigned int bytesPerSector;
    unsigned int bytesPerCluster;
    unsigned int clusterCount;
    unsigned int freeClusters;
    char16_t volumeLabel[12];  // of the root directory; without trailing spaces, zero-terminated
    // 1 when a failure left it unknown what stands on the volume: every change is refused, and
    // reading goes on, until the volume is mounted again. Otherwise 0.
    unsigned int refusesChanges;
};

extern "C" {

// ---- Library and volumes ----------------------------------------------------------------------

// Sets the library up: its caches (64 MiB of address space) and tables. It selects the locale of
// the environment for the process. When memory is short, every other function fails afterwards
// and the call may be repeated. A second call without an end between changes nothing.
FATVOL_API void Fat_LibInitialize(void) noexcept;

// Frees everything. True when no file handle and no find handle was open. Volumes still mounted
// are given up: their storage is closed and deleted, and what was not written yet is lost.
FATVOL_API bool Fat_LibTerminate(void) noexcept;

// Mounts the volume behind `storage`, which belongs to the library from here on, and makes it the
// current one. `parameter` goes to OpenDevice unchanged. Null on failure: the storage object is
// then deleted and there is no current volume; only a storage that a mounted volume has already is
// left to that volume, and nothing changes.
FATVOL_API FatVolume* Fat_Mount(CFatStorage* storage, void* parameter) noexcept;

// Writes what is pending, closes and deletes the storage and frees the volume. Handles left open on
// it stay occupied, but everything except closing them (which, like all, needs a current volume)
// fails. File data that cannot be written is lost: to learn of that, call Fat_FlushVolume before.
// False when the pointer is no mounted volume, or when a block of the FAT could not be written: the
// volume is then out of use, and a second call closes it.
FATVOL_API bool Fat_Unmount(FatVolume* volume) noexcept;

// Chooses the volume that the path functions act on; null, or a pointer that is no mounted volume,
// for none.
FATVOL_API void SetCurrentFileSystem(FatVolume* volume) noexcept;

// ---- Files ------------------------------------------------------------------------------------
// Handles are 0 to 159; handles on one path share one object, and with it the position. A directory
// can be opened too: its contents are its raw entries, and writing them is the host's risk. Every
// function fails while there is no current volume; a handle acts on the volume that it was opened
// on, whichever is current.

// Opens a file or a directory. -1 on failure.
FATVOL_API int Fat_OpenFile(const char16_t* path) noexcept;

// Frees the handle and sets the position of its object to 0.
FATVOL_API bool Fat_CloseFile(int handle) noexcept;

// Transfers up to `count` bytes at the position, which moves on by `*done`, the bytes
// transferred. At or past the end: true, with 0 done. A write never makes a file longer. After a
// failed transfer the position is unchanged; a failed write may have changed some of the bytes.
FATVOL_API bool Fat_ReadFile(int handle, unsigned int count, void* buffer,
                             unsigned int* done) noexcept;
FATVOL_API bool Fat_WriteFile(int handle, unsigned int count, const void* buffer,
                              unsigned int* done) noexcept;

// The same at a byte offset of the caller's, without the position. At or past the end, and for a
// negative offset: false, with 0 done.
FATVOL_API bool Fat_ReadFileEx(int handle, long long offset, unsigned int count, void* buffer,
                               unsigned int* done) noexcept;
FATVOL_API bool Fat_WriteFileEx(int handle, long long offset, unsigned int count,
                                const void* buffer, unsigned int* done) noexcept;

// The position in bytes.
FATVOL_API bool Fat_GetFileOffset(int handle, unsigned int* offset) noexcept;

// Moves the position. Origin 0: to `offset`; 1: on by `offset`, modulo 2^32; 2: to `offset` bytes
// before the end, or 0; any other: not at all. It ends at the file's size at the most (0 for a
// directory).
FATVOL_API bool Fat_SetFileOffset(int handle, unsigned int offset, unsigned int origin) noexcept;

// The size in bytes; 0 for a directory.
FATVOL_API bool Fat_GetFileSize(int handle, unsigned int* size) noexcept;

// Whether the handle names a directory.
FATVOL_API bool Fat_IsDir(int handle) noexcept;

// Attributes, times, size and names of an open file or directory. A time that the entry does not
// hold leaves its field as it was.
FATVOL_API bool Fat_GetFileAttribute(int handle, FatFileInfo* info) noexcept;

// Sets attributes, creation, last write and last access time of an open file or directory from a
// record. Times are rounded up to even seconds; one outside 1980 to 2107 leaves the old one.
// Whether an entry is a directory or a volume label never changes.
FATVOL_API bool Fat_SetFileAttribute(int handle, const FatFileInfo* info) noexcept;

// Makes a file longer or shorter, up to 2^32 bytes minus one cluster; what a longer file holds
// behind its old end is undefined. A directory is rounded up to whole clusters and is not made
// smaller than its last entry. The position is not changed.
FATVOL_API bool Fat_SetFileSize(int handle, unsigned int size) noexcept;

// ---- Creating, deleting, renaming, moving -----------------------------------------------------
// Deleting and moving are refused for what a handle holds open.

// Creates a file and opens it; directories that are missing on the way are made. -1 on failure, in
// particular when the name exists; directories made on the way then stay.
FATVOL_API int Fat_CreateFile(const char16_t* path, unsigned int initialSize,
                              unsigned char attributes) noexcept;

// Creates a directory in the same way.
FATVOL_API bool Fat_CreateDir(const char16_t* path, unsigned char attributes) noexcept;

// Deletes a file or an empty directory.
FATVOL_API bool Fat_DeleteFile(const char16_t* path) noexcept;

// Renames an entry within its directory to the last component of `newPath`, whose other components
// are ignored. The new name must not exist there in any letter case. Handles follow. Refused when
// the path of anything below that a handle holds would grow beyond 259 units.
FATVOL_API bool Fat_RenameFile(const char16_t* path, const char16_t* newPath) noexcept;

// Moves an entry to the directory `destination`, null for the root. True without doing or checking
// anything when the paths say that it is there already. Refused for long paths like a rename.
FATVOL_API bool Fat_MoveFile(const char16_t* path, const char16_t* destination) noexcept;

// ---- Enumerating directories ------------------------------------------------------------------
// Find handles are 0 to 31.

// Starts to enumerate the directory `path` and gives its first entry. -1 when it is empty, missing
// or no directory, with 32 enumerations open, and on every other failure.
FATVOL_API int Fat_FindFirstFile(const char16_t* path, FatFileInfo* info) noexcept;

// The next entry. False after the last one; the call after that starts over.
FATVOL_API bool Fat_FindNextFile(int handle, FatFileInfo* info) noexcept;

// Ends the enumeration.
FATVOL_API bool Fat_CloseFindHandle(int handle) noexcept;

// ---- Helper -----------------------------------------------------------------------------------

// memcpy. Null pointers copy nothing.
FATVOL_API void osMemCpy(void* destination, void* source, unsigned long long size) noexcept;

// ---- Beyond the base set ----------------------------------------------------------------------

// Fat_FindFirstFile for the root directory of the current volume. -1 when it is empty.
FATVOL_API int Fat_FindFirstRootFile(FatFileInfo* info) noexcept;

// Fills `info`, whose first field the caller has set to the size of the record. False when that
// size is too small or `volume` is not mounted.
FATVOL_API bool Fat_GetVolumeInfo(FatVolume* volume, FatVolumeInfo* info) noexcept;

// Writes everything that is pending on a mounted volume: the contents of files, the FAT, the
// directories, the copy of the FAT. True when all of it reached the storage and nothing written
// before was lost on the way there; from then on a loss of power takes nothing of it back. What
// could not be written is kept and tried again by the next call. False also, once, when a write
// failed before that no other call has told of, although it was made good.
FATVOL_API bool Fat_FlushVolume(FatVolume* volume) noexcept;

}  // extern "C"
