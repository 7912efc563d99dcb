// The commands of the tool: what each is told, and the function that runs it. Each returns the exit
// code and has printed what there was to say.
#pragma once

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

int RunInfo(const ImageOptions& options);
int RunLs(const LsOptions& options);
int RunTree(const PathOptions& options);
int RunCat(const PathOptions& options);
int RunGet(const GetOptions& options);
int RunStat(const PathOptions& options);

}  // namespace tool
