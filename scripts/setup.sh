#!/bin/bash
# Installs the Debian 12 packages that this project needs: scripts/setup.sh [build|run|test|bench]
#   build  compiler and libraries for the library and its command-line tool (default)
#   run    these, and what the Python package needs for figures, reports and units, and the live page
#   test   these, and what ./test.sh needs
#   bench  these, and what the benchmarks and the comparison of integrators need
# Only missing packages are installed. If there are none, neither root nor the network is needed.
set -euo pipefail

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config
  libtinyxml-dev libcli11-dev libfast-float-dev libfmt-dev nettle-dev nlohmann-json3-dev)
PYTHON_PACKAGES=(python3 python3-numpy python3-pandas python3-matplotlib
  # reports: pages, and the library that draws their charts
  python3-jinja2 python3-plotly esbuild
  # recipes: units
  python3-pint
  # designs: solvers, files of targets
  python3-scipy python3-yaml
  # maps: lines of equal value
  python3-contourpy
  # X-ray diffraction
  python3-xrayutilities)
# The live page: compiler and libraries for WebAssembly; TinyXML is compiled from Debian's source package.
LIVE_PACKAGES=(clang-19 lld-19 wasi-libc libc++-19-dev-wasm32 libc++abi-19-dev-wasm32 libclang-rt-19-dev-wasm32 dpkg-dev
  # editor and charts of the page
  libjs-codemirror node-d3-scale node-d3-axis node-d3-selection)
# The library and the tool for Windows: compiler, and Wine to run their tests; GoogleTest is compiled from its source, and
# lld makes the import library for Microsoft's linker.
WINDOWS_PACKAGES=(g++-mingw-w64-x86-64-posix wine wine64 googletest lld-19
  # the example in C#
  mono-mcs mono-runtime)
# The build for 64-bit ARM: compiler, and the emulator that runs its programs.
ARM_PACKAGES=(g++-aarch64-linux-gnu qemu-user-static dpkg-dev)
TEST_PACKAGES=("${PYTHON_PACKAGES[@]}" "${LIVE_PACKAGES[@]}" "${WINDOWS_PACKAGES[@]}" "${ARM_PACKAGES[@]}"
  # compilers, static analysis, test library
  ccache clang clang-format clang-tidy libclang-rt-14-dev cppcheck gcovr libgtest-dev libgmock-dev mypy valgrind
  # tools that tests call
  bash-completion debootstrap file git groff-base jing libxml2-utils lintian locales nodejs
  # the Python package: tests, formats, installation, browser
  python3-pytest python3-pytest-xdist python3-hypothesis python3-lxml python3-xarray python3-netcdf4 python3-pip
  python3-venv python3-setuptools
  python3-wheel python3-selenium chromium chromium-driver
  # sweeps, fits, notebooks
  python3-distributed python3-lmfit python3-mpi4py python3-ipykernel python3-nbclient python3-nbformat
  python3-tqdm munge procps openmpi-bin slurm-wlm
  # the manual
  mkdocs mkdocs-material libjs-katex fonts-katex)
BENCH_PACKAGES=(libbenchmark-dev libsundials-dev)
# The tests run under a locale with a comma as decimal separator.
TEST_LOCALE=de_DE

die() {
  echo "setup: $*" >&2
  exit 1
}

# Sets as_root to the command that gives root permissions. Without one, stops and shows its arguments as what to do.
rise_to_root() {
  if [ "$(id -u)" -eq 0 ]; then
    as_root=()
  elif command -v sudo >/dev/null; then
    as_root=(sudo)
    sudo true || die "sudo failed"  # asks for the password now, not while progress is shown
  else
    die "this needs root, and sudo is not installed. As root, run:
  $*"
  fi
}

case "${1:-build}" in
  build) packages=("${BUILD_PACKAGES[@]}") ;;
  run) packages=("${BUILD_PACKAGES[@]}" "${PYTHON_PACKAGES[@]}" "${LIVE_PACKAGES[@]}") ;;
  test) packages=("${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}") ;;
  bench) packages=("${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${BENCH_PACKAGES[@]}") ;;
  *) die "usage: scripts/setup.sh [build|run|test|bench]" ;;
esac

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  die "this is not a Debian system. Install the equivalents of these Debian 12 packages:
  ${packages[*]}
The CMake presets then work without this script, see CONTRIBUTING.md."
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  rise_to_root "apt-get update && apt-get install -y --no-install-recommends ${missing[*]}"
  echo "setup: installing ${#missing[@]} packages and what they need: ${missing[*]}"
  log=$(mktemp)
  trap 'rm -f "$log"' EXIT
  for action in "update" "install -y --no-install-recommends ${missing[*]}"; do
    # shellcheck disable=SC2086  # the action is a list of words
    "$(dirname "${BASH_SOURCE[0]}")/with_progress.sh" "$log" \
      "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get $action || die "apt-get ${action%% *} failed"
  done
fi

if [[ "${1:-build}" =~ ^(test|bench)$ ]] && ! locale -a | grep -qix "$TEST_LOCALE\.utf-\?8"; then
  rise_to_root "localedef -i $TEST_LOCALE -f UTF-8 $TEST_LOCALE.UTF-8"
  echo "setup: creating the locale $TEST_LOCALE.UTF-8"
  "${as_root[@]}" localedef -i "$TEST_LOCALE" -f UTF-8 "$TEST_LOCALE.UTF-8"
fi
