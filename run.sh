#!/usr/bin/env bash
# Sets up what is missing, builds, and runs torvane from this checkout.
#   ./run.sh demo       a short tour of the package (the default)
#   ./run.sh test       every test: the C++ tests, then pytest
#   ./run.sh sanitize   the same tests built with AddressSanitizer and UndefinedBehaviorSanitizer
#   ./run.sh tsan       the C++ tests built with ThreadSanitizer, over a oneTBB built for it
#   ./run.sh ft         pytest on a free-threaded CPython with the GIL off (built once into
#                       ../ft/py315t with ../shared/tools/ft-python, its test venv ../ft/venv)
#   ./run.sh fuzz [S]   every fuzz target for S seconds (60 by default), on an extension that
#                       clang instruments for coverage; more options: ./run.sh fuzz --help
# Needs root (or sudo) only when Debian packages are missing.
set -euo pipefail
caller=$PWD
cd "$(dirname "$0")"
root=$PWD
venv=$root/.venv
python=$venv/bin/python

apt_packages() {
  local missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing Debian packages: ${missing[*]}" >&2
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

# system_setup [test]: the Debian packages that building needs, and GoogleTest for the tests.
system_setup() {
  local packages=(libgmp-dev libtbb-dev zlib1g-dev pkg-config)
  [ "${1:-}" = test ] && packages+=(libgtest-dev)
  command -v g++ >/dev/null || packages+=(g++)
  command -v python3 >/dev/null || packages+=(python3)
  apt_packages "${packages[@]}"
  # A Python that can make virtual environments and has its headers.
  if ! python3 -c 'import venv, ensurepip, sysconfig, os, sys
sys.exit(not os.path.exists(os.path.join(sysconfig.get_paths()["include"], "Python.h")))' 2>/dev/null; then
    apt_packages python3-dev python3-venv
  fi
}

# pip_requirements FILE: installs FILE (a path from the root) into the venv unless it is
# unchanged since last time.
pip_requirements() {
  local file=$1 stamp=$venv/.${1//\//-}
  if ! cmp -s "$file" "$stamp" 2>/dev/null; then
    "$python" -m pip install -q --upgrade pip
    "$python" -m pip install -q -r "$file"
    cp "$file" "$stamp"
  fi
}

# python_setup [test]: the venv with the build tools, and the test tools for the tests.
python_setup() {
  [ -x "$python" ] || python3 -m venv "$venv"
  pip_requirements requirements-build.txt
  [ "${1:-}" = test ] && pip_requirements tests/requirements.txt
  return 0
}

# build DIR [cmake options...]: configures once (again when an option asked for is not in the
# cache yet), then builds what changed. TARGET, when set, builds only that target.
build() {
  local dir=$1
  shift
  local configure=0
  [ -f "$dir/build.ninja" ] || configure=1
  for option in "$@"; do
    local name=${option#-D} value=${option#*=}
    name=${name%%=*}
    grep -q "^$name:[A-Z]*=$value\$" "$dir/CMakeCache.txt" 2>/dev/null || configure=1
  done
  if [ $configure -eq 1 ]; then
    PATH=$venv/bin:$PATH cmake -S "$root" -B "$dir" -G Ninja -DPython_EXECUTABLE="$python" "$@" >/dev/null
  fi
  PATH=$venv/bin:$PATH cmake --build "$dir" -j"$(nproc)" ${TARGET:+--target "$TARGET"}
}

# Debian's oneTBB is not built for ThreadSanitizer, which then cannot see the pool's own
# synchronisation and reports every hand-off between tasks. The tsan target links the same
# oneTBB release, from Debian's source package, built with -fsanitize=thread.
tsan_tbb() {
  local dir=$root/build/tbb-tsan
  [ -f "$dir/install/lib/cmake/TBB/TBBConfig.cmake" ] && return 0
  apt_packages dpkg-dev
  mkdir -p "$dir"
  if ! ls "$dir"/onetbb_*.orig.tar.* >/dev/null 2>&1; then
    if ! apt-get source --download-only --print-uris onetbb >/dev/null 2>&1; then
      local sudo=""
      [ "$(id -u)" -eq 0 ] || sudo=sudo
      if [ -f /etc/apt/sources.list.d/debian.sources ]; then
        sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources | $sudo tee /etc/apt/sources.list.d/torvane-src.sources >/dev/null
      else
        grep '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' | $sudo tee /etc/apt/sources.list.d/torvane-src.list >/dev/null
      fi
      $sudo apt-get update -qq
    fi
    (cd "$dir" && apt-get source --download-only -qq onetbb)
  fi
  rm -rf "$dir/source" && mkdir -p "$dir/source"
  tar xf "$dir"/onetbb_*.orig.tar.* -C "$dir/source" --strip-components=1
  PATH=$venv/bin:$PATH cmake -S "$dir/source" -B "$dir/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_POLICY_VERSION_MINIMUM=3.5 -DTBB_TEST=OFF -DTBB_EXAMPLES=OFF -DTBB_STRICT=OFF -DTBBMALLOC_BUILD=OFF \
    -DTBB_SANITIZE=thread -DCMAKE_INSTALL_PREFIX="$dir/install" >/dev/null
  PATH=$venv/bin:$PATH cmake --build "$dir/build" -j"$(nproc)" >/dev/null
  PATH=$venv/bin:$PATH cmake --install "$dir/build" >/dev/null
}

test_setup() {
  system_setup test
  # The player's browser tests drive a headless Chromium.
  apt_packages chromium chromium-driver
  python_setup test
  build build/release -DTORVANE_TESTS=ON -DTORVANE_INPLACE=ON
}

case "${1:-demo}" in
  demo)
    # Only the package: no test tools, no C++ tests. The picture goes to the caller's folder.
    system_setup
    python_setup
    TARGET=_native build build/release -DTORVANE_INPLACE=ON
    cd "$caller"
    PYTHONPATH=$root/python exec "$python" -m torvane
    ;;
  test)
    test_setup
    build/release/torvane_tests --gtest_brief=1
    PYTHONPATH=$root/python exec "$python" -m pytest -q tests
    ;;
  sanitize)
    system_setup test
    python_setup test
    build build/asan -DTORVANE_TESTS=ON -DTORVANE_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=RelWithDebInfo
    build/asan/torvane_tests --gtest_brief=1
    module=$(ls build/asan/_native*.so)
    mkdir -p build/asan/python && cp -r python/torvane build/asan/python/ && cp "$module" build/asan/python/torvane/
    ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD="$(g++ -print-file-name=libasan.so) $(g++ -print-file-name=libubsan.so)" \
      PYTHONPATH=$root/build/asan/python exec "$python" -m pytest -q -p no:cacheprovider tests
    ;;
  tsan)
    system_setup test
    python_setup test
    tsan_tbb
    build build/tsan -DTORVANE_TESTS=ON -DTORVANE_SANITIZE=thread -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTBB_DIR="$root/build/tbb-tsan/install/lib/cmake/TBB"
    LD_LIBRARY_PATH=$root/build/tbb-tsan/install/lib RAYON_NUM_THREADS=4 exec build/tsan/torvane_tests --gtest_brief=1
    ;;
  ft)
    # The interpreter and its test venv take minutes to make, so they live beside the
    # checkout and are shared by every checkout; TORVANE_FT_PREFIX and TORVANE_FT_VENV move them.
    tools=$root/../shared/tools
    ft_prefix=${TORVANE_FT_PREFIX:-$root/../ft/py315t}
    ft_venv=${TORVANE_FT_VENV:-$root/../ft/venv}
    system_setup
    python_setup
    "$tools/ft-python" "$ft_prefix"
    [ -x "$ft_venv/bin/python" ] || nice -n 5 "$tools/ft-venv" "$ft_prefix/bin/python3" "$ft_venv"
    build build/ft -DTORVANE_TESTS=OFF -DPython_EXECUTABLE="$ft_venv/bin/python" -DCMAKE_BUILD_TYPE=Release
    rm -rf build/ft/python && mkdir -p build/ft/python
    cp -r python/torvane build/ft/python/ && rm -f build/ft/python/torvane/_native*.so
    cp build/ft/_native*.so build/ft/python/torvane/
    unset PYTHON_GIL
    PYTHONPATH=$root/build/ft/python "$ft_venv/bin/python" -c 'import sys, torvane
assert not sys._is_gil_enabled(), "importing torvane turned the GIL on"
print("free-threaded", sys.version.split()[0], "- GIL enabled after import:", sys._is_gil_enabled())'
    PYTHONPATH=$root/build/ft/python exec "$ft_venv/bin/python" -m pytest -q -p no:cacheprovider -rs tests
    ;;
  fuzz)
    system_setup
    [ "${TORVANE_FUZZ_INSTRUMENT:-1}" = 0 ] || command -v clang++ >/dev/null || apt_packages clang
    python_setup test
    pip_requirements tests/fuzz/requirements.txt
    if [ "${TORVANE_FUZZ_INSTRUMENT:-1}" = 0 ]; then
      # A smoke run (CI's): the release build, without coverage feedback from the C++.
      TARGET=_native build build/release -DTORVANE_INPLACE=ON
      PYTHONPATH=$root/python exec nice -n 10 "$python" tests/fuzz/run.py "${@:2}"
    fi
    CXX=clang++ TARGET=_native build build/fuzz-native -DTORVANE_FUZZ=ON
    rm -rf build/fuzz-native/python && mkdir -p build/fuzz-native/python
    cp -r python/torvane build/fuzz-native/python/ && rm -f build/fuzz-native/python/torvane/_native*.so
    cp build/fuzz-native/_native*.so build/fuzz-native/python/torvane/
    # The instrumented extension reports its coverage to the libFuzzer that atheris ships.
    fuzzer=$("$python" -c 'import atheris; print(atheris.path())')/ubsan_with_fuzzer.so
    LD_PRELOAD=$fuzzer PYTHONPATH=$root/build/fuzz-native/python exec nice -n 10 "$python" tests/fuzz/run.py "${@:2}"
    ;;
  *)
    echo "usage: $0 [demo|test|sanitize|tsan|ft|fuzz [seconds]]" >&2
    exit 2
    ;;
esac
