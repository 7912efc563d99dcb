// The commands of the tool: what each is told, and the function that runs it. Each returns the exit
// code and has printed what there was to say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct ImageOptions {
    std::string image;
};

// Shared by the commands that look at one file or directory.
struct PathOptions {
    std::string image;
    std::string path = "/";
};

struct LsOptions {
    std::string image;
    std::string path = "/";
    bool namesOnly = false;
};

enum class OnExisting { Fail, Replace, Skip };

struct GetOptions {
    std::string image;
    std::vector<std::string> paths;
    std::string local;
    OnExisting onExisting = OnExisting::Fail;
};

// Whether a command only tells what it would do.
enum class DryRun { No, Yes };

struct CopyOptions {
    std::string image;
    std::vector<std::string> sources;  // local files for put, paths on the volume for cp
    std::string target;
    OnExisting onExisting = OnExisting::Fail;
    DryRun dryRun = DryRun::No;
    bool recursive = false;  // cp alone; put is always
};

struct MkdirOptions {
    std::string image;
    std::vector<std::string> paths;
    bool withParents = false;
};

struct RmOptions {
    std::string image;
    std::vector<std::string> paths;
    bool recursive = false;
    DryRun dryRun = DryRun::No;
};

struct MvOptions {
    std::string image;
    std::vector<std::string> sources;
    std::string target;
};

struct TruncateOptions {
    std::string image;
    std::vector<std::string> paths;
    std::uint64_t sizeBytes = 0;
    DryRun dryRun = DryRun::No;
};

struct AttrOptions {
    std::string image;
    std::vector<std::string> paths;
    unsigned int set = 0;    // of AttributeBit
    unsigned int clear = 0;  // of AttributeBit
};

struct TouchOptions {
    std::string image;
    std::vector<std::string> paths;
    std::string time;  // empty: now
};

int RunInfo(const ImageOptions& options);
int RunLs(const LsOptions& options);
int RunTree(const PathOptions& options);
int RunCat(const PathOptions& options);
int RunGet(const GetOptions& options);
int RunStat(const PathOptions& options);

int RunPut(const CopyOptions& options);
int RunCp(const CopyOptions& options);
int RunMkdir(const MkdirOptions& options);
int RunRm(const RmOptions& options);
int RunMv(const MvOptions& options);
int RunTruncate(const TruncateOptions& options);
int RunAttr(const AttrOptions& options);
int RunTouch(const TouchOptions& options);

}  // namespace tool
