#!/usr/bin/env bash
# Makes the Debian package with CPack and checks what it depends on and holds.
# Usage: package-test.sh BUILD_DIR
set -euo pipefail
build=$1
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
(cd "$build" && cpack -G DEB -B "$out" >/dev/null)
deb=$(ls "$out"/*.deb)
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
for package in libqt6widgets6 libqt6dbus6 libqt6core6 libsqlite3-0 qt6-qpa-plugins xdg-utils; do
  grep -q "$package" <<<"$depends" || { echo "FAIL: the package does not depend on $package" >&2; exit 1; }
done
contents=$(dpkg-deb -c "$deb")
for file in ./usr/bin/corvana ./usr/bin/corvana-cli ./usr/libexec/corvana/corvana-privileged-runner \
    "./usr/libexec/corvana/Corvana Helper/corvana-helper" ./usr/share/applications/org.corvana.Corvana.desktop; do
  grep -qF "$file" <<<"$contents" || { echo "FAIL: $file is not in the package" >&2; exit 1; }
done
echo "$(basename "$deb"): fine"
