#!/usr/bin/env bash
# Takes the screenshots of docs/images under Xvfb: the conversion options
# dialog with a generated recording, and the codec dialog.
# Usage: scripts/screenshots.sh
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release --target tarnvel-dialog-shots
mkdir -p "$root/docs/images"
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1024x768x24" \
  "$root/build/release/tests/ui/qt/tarnvel-dialog-shots" "$root/docs/images"
echo "docs/images: options-dialog.png codec-dialog.png"
