# Shared by scripts/test and scripts/demo: package installation and the build.
# Sourced, not run.

IMB_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
IMB_JOBS=${IMB_JOBS:-$(nproc)}

# Debian packages the project builds with (library, tests, tools, benchmarks,
# fuzzers, sanitizer builds and the Python module with its tests and example).
IMB_PACKAGES=(
  g++ cmake ninja-build pkg-config ca-certificates
  clang-14 libclang-rt-14-dev llvm-14
  libgtest-dev libgmock-dev libbenchmark-dev
  libopencolorio-dev libtbb-dev libfmt-dev rapidjson-dev libhwy-dev
  libopenimageio-dev libcli11-dev libopenexr-dev
  python3-dev pybind11-dev python3-numpy python3-pytest python3-openimageio
  openimageio-tools opencolorio-tools
)

# Installs whatever of IMB_PACKAGES is missing: one apt-get update, one
# install, nothing at all when everything is present.
imb_install_packages() {
  local missing=()
  local p
  for p in "${IMB_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  echo "== installing: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  $sudo apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
}

# imb_build DIR [cmake options...]: configure (once) and build with Ninja.
# Compiles through ccache when it is installed (and IMB_CCACHE is not 0), with
# paths taken relative to the tree, so a rerun or another clone of the tree
# on the same machine reuses the objects.
imb_build() {
  local dir=$1
  shift
  local launcher=()
  if [ "${IMB_CCACHE:-1}" != 0 ] && command -v ccache > /dev/null; then
    export CCACHE_BASEDIR="$IMB_ROOT"
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  cmake -S "$IMB_ROOT" -B "$dir" -G Ninja "${launcher[@]}" "$@"
  cmake --build "$dir" -j "$IMB_JOBS"
}

# Stage timing. imb_stage NAME closes the running stage (printing its elapsed
# time and the processor time its commands used) and opens the next;
# imb_stage_summary closes the last one and lists every stage, so a slow run
# shows where its minutes went. On a shared machine the processor time is
# the steadier figure: the wall time on an idle machine lies between it
# divided by the core count and it.
IMB_STAGE_NAME=""
IMB_STAGE_START=0
IMB_STAGE_CPU=0
IMB_STAGE_LINES=()
IMB_RUN_START=$SECONDS
# Sets IMB_CPU to the processor seconds (user + system) of the finished child
# processes so far. `times` runs in this shell: in a subshell it would see
# none of them.
imb_cpu_seconds() {
  local f="${TMPDIR:-/tmp}/imb-times.$$"
  times > "$f"
  IMB_CPU=$(tail -n 1 "$f" | awk '{
    s = 0
    for (i = 1; i <= 2; ++i) { split($i, a, "m"); sub("s", "", a[2]); s += a[1] * 60 + a[2] }
    printf "%d\n", s }')
  rm -f "$f"
}
imb_stage_end() {
  [ -n "$IMB_STAGE_NAME" ] || return 0
  local t=$((SECONDS - IMB_STAGE_START))
  imb_cpu_seconds
  local c=$((IMB_CPU - IMB_STAGE_CPU))
  local line
  line=$(printf '%-52s %3dm%02ds  (cpu %3dm%02ds)' "$IMB_STAGE_NAME" $((t / 60)) $((t % 60)) \
    $((c / 60)) $((c % 60)))
  echo "-- time: $line"
  IMB_STAGE_LINES+=("$line")
  IMB_STAGE_NAME=""
}
imb_stage() {
  imb_stage_end
  IMB_STAGE_NAME=$1
  IMB_STAGE_START=$SECONDS
  imb_cpu_seconds
  IMB_STAGE_CPU=$IMB_CPU
  echo "== $1"
}
imb_stage_summary() {
  imb_stage_end
  local t=$((SECONDS - IMB_RUN_START))
  imb_cpu_seconds
  local c=$IMB_CPU
  echo "== stage times"
  local line
  for line in "${IMB_STAGE_LINES[@]}"; do echo "   $line"; done
  printf '   %-52s %3dm%02ds  (cpu %3dm%02ds)\n' "total" $((t / 60)) $((t % 60)) $((c / 60)) $((c % 60))
}

# ---------------------------------------------------------------- fuzzing
# Every fuzz/<name>.cpp is a libFuzzer target fuzz_<name>. Its inputs: the
# corpus kept in the tree, fuzz/corpus/<name>/ (absent means empty), and the
# seed folders under tests/data listed one a line in fuzz/<name>.seeds; its
# dictionary, when there is one, fuzz/<name>.dict.
IMB_FUZZ_BUILD=${IMB_FUZZ_BUILD:-build-fuzz}

# imb_build_fuzz [cmake options...]: configures and builds the fuzz targets
# (ASan+UBSan, clang 14, the library instrumented for coverage) in
# $IMB_FUZZ_BUILD; the options are added last, so they override.
imb_build_fuzz() {
  imb_build "$IMB_ROOT/$IMB_FUZZ_BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
    -DIMB_SANITIZE=address,undefined \
    -DIMB_BUILD_FUZZ=ON -DIMB_BUILD_TESTS=OFF -DIMB_BUILD_TOOLS=OFF -DIMB_BUILD_BENCH=OFF \
    -DIMB_BUILD_IO=OFF -DIMB_BUILD_PYTHON=OFF "$@"
}

# The names of the fuzz targets, one a line.
imb_fuzz_targets() {
  local src
  for src in "$IMB_ROOT"/fuzz/*.cpp; do
    [ -e "$src" ] && basename "$src" .cpp
  done
  return 0
}

# imb_fuzz_seeds NAME: sets IMB_SEEDS to the target's existing seed folders.
imb_fuzz_seeds() {
  IMB_SEEDS=()
  local d
  if [ -f "$IMB_ROOT/fuzz/$1.seeds" ]; then
    while read -r d; do
      [ -n "$d" ] && [ -d "$IMB_ROOT/tests/data/$d" ] && IMB_SEEDS+=("$IMB_ROOT/tests/data/$d")
    done < "$IMB_ROOT/fuzz/$1.seeds"
  fi
  return 0
}

# imb_fuzz NAME LOG ARGS...: runs fuzz_NAME with the sanitizer settings, its
# dictionary and ARGS (libFuzzer options, then corpus folders), all output in
# LOG. The library's messages about rejected inputs go to the standard error
# stream; -close_fd_mask=2 sends the target's stderr to /dev/null (libFuzzer
# and the sanitizers keep writing their reports to the log), so runs spend
# their time fuzzing rather than writing megabytes of messages. An input
# still running after 60 seconds counts as a hang: on a busy two-core machine
# a single input of a few microseconds has stalled for 17 seconds. Crash
# inputs land in $IMB_FUZZ_BUILD/artifacts/.
imb_fuzz() {
  local name=$1 log=$2
  shift 2
  local dict=()
  [ -f "$IMB_ROOT/fuzz/$name.dict" ] && dict=("-dict=$IMB_ROOT/fuzz/$name.dict")
  mkdir -p "$IMB_ROOT/$IMB_FUZZ_BUILD/artifacts"
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    "$IMB_ROOT/$IMB_FUZZ_BUILD/fuzz/fuzz_$name" -rss_limit_mb=2048 -timeout=60 \
    -close_fd_mask=2 -print_final_stats=1 \
    -artifact_prefix="$IMB_ROOT/$IMB_FUZZ_BUILD/artifacts/$name-" "${dict[@]}" "$@" > "$log" 2>&1
}

# imb_fuzz_units LOG: the executed-units count of a run (0 when absent).
imb_fuzz_units() {
  local n
  n=$(grep -a 'stat::number_of_executed_units' "$1" | tail -n 1 | awk '{print $2}')
  echo "${n:-0}"
}
