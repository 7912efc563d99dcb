#!/bin/sh
# includes_test.sh SOURCE_FOLDER
# Fails when source files include each other in a circle, when a file outside api/ reaches into
# api/ for anything but the public header, when the public header includes a file of the project,
# or when an #include "..." names no file of the folder.
set -eu
cd "$1"

find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||' | sort |
awk '
function fail(text) {
    print text
    failures++
}

# The file that `name` means inside `from`: beside it or from the root of the folder.
function resolve(from, name,    beside) {
    beside = from
    sub(/[^\/]*$/, "", beside)
    if ((beside name) in isFile) return beside name
    if (name in isFile) return name
    if (("api/" name) in isFile) return "api/" name
    return ""
}

function readIncludes(from,    line, name, target) {
    while ((getline line < from) > 0) {
        if (line !~ /^[ \t]*#[ \t]*include[ \t]*"/) continue
        split(line, quoted, "\"")
        name = quoted[2]
        target = resolve(from, name)
        if (target == "") {
            fail(from ": includes \"" name "\", which is no file of the folder")
            continue
        }
        includeCount++
        if (from == "api/fatvol.h") fail(from ": the public header includes \"" name "\"")
        if (target ~ /^api\// && target != "api/fatvol.h" && from !~ /^api\//)
            fail(from ": reaches up to " target)
        if (!((from, target) in edge)) {
            edge[from, target] = 1
            targets[from, ++targetCount[from]] = target
        }
    }
    close(from)
}

# Depth first; `state` is 1 while a file is on the way down from the start and 2 once it is done.
function visit(file, depth,    i, j, target, circle) {
    state[file] = 1
    way[depth] = file
    for (i = 1; i <= targetCount[file]; i++) {
        target = targets[file, i]
        if (state[target] == 0) {
            visit(target, depth + 1)
        } else if (state[target] == 1) {
            circle = target
            for (j = depth; way[j] != target; j--) circle = way[j] " -> " circle
            fail("circle: " target " -> " circle)
        }
    }
    state[file] = 2
}

{ files[++fileCount] = $0; isFile[$0] = 1 }

END {
    for (f = 1; f <= fileCount; f++) readIncludes(files[f])
    for (f = 1; f <= fileCount; f++) if (state[files[f]] == 0) visit(files[f], 1)
    if (includeCount == 0) fail("no include line was found")
    printf "%d files, %d include lines, %d faults\n", fileCount, includeCount, failures
    exit failures > 0
}'
