# Shared by the scripts of this folder, which source it after `set -euo pipefail`.
# shellcheck shell=bash disable=SC2034

# The root of the source tree; the scripts work from any directory.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

buildPackages=(g++ cmake ninja-build libcli11-dev libfmt-dev libgtest-dev locales)
volumePackages=(dosfstools mtools)
judgePackages=(p7zip-full "${volumePackages[@]}")
windowsPackages=(g++-mingw-w64-x86-64-posix wine64 googletest)
windowsJudgePackages=(lld llvm)  # for a host of MSVC's kind
checkPackages=(binutils clang clang-format clang-tidy diffutils "${judgePackages[@]}")

# mkfs.fat and fsck.fat live where an ordinary user's path does not lead.
PATH=$PATH:/usr/sbin:/sbin

run_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

is_installed() {
    dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null | grep -qx installed
}

# Installs those of the named Debian packages that are missing.
install_missing() {
    local package missing=()
    if ! command -v dpkg-query >/dev/null; then
        echo "This is no Debian system; these packages are needed: $*" >&2
        return 0
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    echo "Installing ${missing[*]}" >&2
    run_as_root apt-get update -qq >&2
    run_as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# build PRESET [TARGET...]: configures and builds in build/PRESET; two jobs at a time, or JOBS.
build() {
    local preset=$1
    shift
    (cd "$root" && cmake --preset "$preset" && cmake --build "build/$preset" -j "${JOBS:-2}" \
        ${1:+--target "$@"})
}

# run_stages SCRIPT STAGE...: checks that a function stage_STAGE exists for each stage, runs them all,
# also after one has failed, and prints a summary. A stage that returns 77 was left out. Fails when
# one has failed; exits with 2, before anything runs, when one is unknown.
run_stages() {
    local script=$1 stage summary="" failures=0 start status result
    shift
    for stage in "$@"; do
        if ! declare -F "stage_$stage" >/dev/null; then
            echo "$script: no stage is named '$stage'; the stages are: ${allStages[*]}" >&2
            exit 2
        fi
    done
    for stage in "$@"; do
        printf '\n==== %s\n' "$stage"
        start=$SECONDS
        status=0
        "stage_$stage" || status=$?
        case $status in
            0) result=passed ;;
            77) result='LEFT OUT' ;;
            *) result=FAILED failures=$((failures + 1)) ;;
        esac
        summary+=$(printf '%-12s %s in %d s' "$stage" "$result" $((SECONDS - start)))$'\n'
    done
    printf '\n==== Summary\n%s' "$summary"
    [ "$failures" -eq 0 ]
}
