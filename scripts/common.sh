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
imb_build() {
  local dir=$1
  shift
  cmake -S "$IMB_ROOT" -B "$dir" -G Ninja "$@"
  cmake --build "$dir" -j "$IMB_JOBS"
}
