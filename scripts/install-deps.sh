#!/usr/bin/env bash
# Installs, through apt, whatever the build and the tests need and the
# machine lacks. Safe to run again: it installs nothing that is present.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libgtest-dev libgmock-dev
  libxml2-dev
  liburing-dev               # reads of a volume in flight together
  clang libclang-rt-14-dev   # libFuzzer targets
  ntfs-3g attr fuse3         # building NTFS fixture volumes
  python3 gzip               # NTFS fixture script and fuzz seeds
  sleuthkit libfsntfs-utils  # independent NTFS readers, test oracles
  gdb                        # reading crash dumps in tests
  libsqlite3-dev libpq-dev   # the catalogue's databases: SQLite embedded, PostgreSQL's client
  postgresql postgresql-contrib  # a real server for the catalogue's tests (pg_trgm)
  sqlite3                    # the catalogue benchmark's baseline (.import and LIKE)
  libcpp-httplib-dev libssl-dev nlohmann-json3-dev  # the catalogue's web server, HTTPS; JSON in its tests
)

# The Windows cross build and its tests under Wine, installed on their own
# (`install-deps.sh windows`, run by scripts/test-windows.sh) so that the
# Linux suites do not wait for them.
windows_packages=(
  g++-mingw-w64-x86-64-posix  # MinGW-w64 with posix threads
  googletest                  # GoogleTest sources, built for the target
  wine64                      # runs the .exe files
)
# The browser of the web page's test, installed on their own
# (`install-deps.sh browser`, run by scripts/test-web.sh).
browser_packages=(chromium chromium-driver python3-selenium)
if [ "${1:-}" = windows ]; then
  packages=("${windows_packages[@]}")
elif [ "${1:-}" = browser ]; then
  packages=("${browser_packages[@]}")
fi

missing=()
for p in "${packages[@]}"; do
  [[ "$p" == \#* ]] && continue
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "install-deps: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
