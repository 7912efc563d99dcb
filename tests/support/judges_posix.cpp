#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "judges.h"

namespace fatvol::test {

namespace {

constexpr size_t sampledFiles = 4;

// Runs a program, whose output goes to a file, and gives what it said.
std::string OutputOf(const std::string& command, const std::string& file) {
    const std::string line = "PATH=$PATH:/usr/sbin:/sbin; " + command + " >" + file + " 2>&1";
    EXPECT_EQ(std::system(line.c_str()), 0) << command;
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void ExpectFsckContent(const std::string& image) {
    const std::string said = OutputOf("fsck.fat -n " + image, image + ".txt");
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        const bool isAccepted = line.empty() || line.starts_with("fsck.fat ") ||
                                line.starts_with("Free cluster summary uninitialized") ||
                                line == "Leaving filesystem unchanged." || line.starts_with(image);
        EXPECT_TRUE(isAccepted) << line;
    }
}

// Empty when it means something to the shell or to mcopy.
std::string PlainPath(const std::u16string& path) {
    std::string text = "/" + Printable(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("/._", c);
    });
    return isPlain ? text : "";
}

void ExpectContents(const std::string& image, const Tree& tree) {
    std::vector<std::pair<std::string, const TreeNode*>> files;
    for (const auto& [path, node] : tree) {
        const std::string name = node.content.empty() ? "" : PlainPath(path);
        if (!name.empty()) {
            files.emplace_back(name, &node);
        }
    }
    for (size_t i = 0; i < files.size(); i += files.size() / sampledFiles + 1) {
        const auto& [name, node] = files[i];
        // Its own check of the first FAT entries refuses a link to the last cluster.
        const std::string command =
            "MTOOLS_SKIP_CHECK=1 mcopy -n -i " + image + " ::" + name + " -";
        const std::string read = OutputOf(command, image + ".txt");
        const std::vector<uint8_t> content(read.begin(), read.end());
        EXPECT_TRUE(content == node->content) << name;
    }
}

}  // namespace

void ExpectJudgedSound(const MemoryDisk& disk) {
    const Geometry geometry = ReadGeometry(disk);
    const bool isSmallFat32 = geometry.fatType == 32 && geometry.clusterCount < 65525;
    if (geometry.bytesPerSector < 512 || isSmallFat32 ||
        !CheckImage(disk).duplicateShortNames.empty()) {
        return;
    }
    const std::string image = testing::TempDir() + "fatvol_judged_" + std::to_string(getpid());
    disk.Save(image);
    ExpectFsckContent(image);
    ExpectContents(image, ReadTree(disk));
    std::remove(image.c_str());
    std::remove((image + ".txt").c_str());
}

}  // namespace fatvol::test
