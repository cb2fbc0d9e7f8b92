#!/usr/bin/env bash
# Installs the build with DESTDIR into a temporary root, checks the layout and the desktop files
# with their validators, and starts the installed program on the offscreen platform with a
# generated library: it must reach the main view and find its helper, runner and help there.
# Usage: install-test.sh BUILD_DIR
set -euo pipefail
build=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR="$root/dest" cmake --install "$build" --prefix /usr >/dev/null
usr="$root/dest/usr"

fail() { echo "FAIL: $*" >&2; exit 1; }
for file in bin/corvana bin/corvana-cli libexec/corvana/corvana-privileged-runner \
    "libexec/corvana/Corvana Helper/corvana-helper" "libexec/corvana/Corvana Helper/Info.ini" \
    share/applications/org.corvana.Corvana.desktop share/metainfo/org.corvana.Corvana.metainfo.xml \
    share/icons/hicolor/scalable/apps/org.corvana.Corvana.svg share/icons/hicolor/48x48/apps/org.corvana.Corvana.png \
    share/polkit-1/actions/org.corvana.Corvana.policy share/dbus-1/interfaces/org.corvana.PlayerLibrary1.xml \
    share/dbus-1/interfaces/org.corvana.CorvanaHelper1.xml share/man/man1/corvana.1 share/man/man1/corvana-cli.1 \
    share/bash-completion/completions/corvana-cli share/doc/corvana/copyright share/corvana/help/index.html; do
  [[ -e "$usr/$file" ]] || fail "$file is not installed"
done
grep -q '<annotate key="org.freedesktop.policykit.exec.path">/usr/libexec/corvana/corvana-privileged-runner</annotate>' \
  "$usr/share/polkit-1/actions/org.corvana.Corvana.policy" || fail "the polkit action names another runner"
bash -n "$usr/share/bash-completion/completions/corvana-cli" || fail "the completion does not parse"
if command -v desktop-file-validate >/dev/null; then
  out=$(desktop-file-validate "$usr/share/applications/org.corvana.Corvana.desktop" 2>&1) || fail "$out"
  [[ -z "$out" ]] || fail "desktop-file-validate: $out"
fi
if command -v appstreamcli >/dev/null; then
  appstreamcli validate --no-net --pedantic "$usr/share/metainfo/org.corvana.Corvana.metainfo.xml" >"$root/as.txt" 2>&1 \
    || { cat "$root/as.txt" >&2; fail "appstreamcli validate"; }
fi

# The installed program on a library of its own.
home="$root/home"
mkdir -p "$home/Music/iTunes" "$home/run"
chmod 700 "$home/run"
"$build/tests/corvana-genlib" --tracks 200 --seed 7 --create-media --media-root "$home/Music/iTunes" \
  "$home/Music/iTunes/iTunes Library.xml" >/dev/null
out=$(HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" XDG_RUNTIME_DIR="$home/run" \
  QT_QPA_PLATFORM=offscreen timeout 300 "$usr/bin/corvana" --check 2>"$root/err.txt") \
  || { cat "$root/err.txt" >&2; fail "the installed corvana did not reach the main view"; }
echo "$out"
grep -qx "main view: shown" <<<"$out" || fail "no main view"
grep -qx "helper: $usr/libexec/corvana/Corvana Helper (installed, current)" <<<"$out" || fail "the helper was not found"
grep -qx "runner: $usr/libexec/corvana/corvana-privileged-runner" <<<"$out" || fail "the runner was not found"
grep -qx "help: $usr/share/corvana/help/index.html" <<<"$out" || fail "the help was not found"
[[ -x "$home/.local/share/Corvana/Corvana Helper/corvana-helper" ]] || fail "the helper was not installed for the user"
echo "installed layout, desktop files and the installed program: fine"
