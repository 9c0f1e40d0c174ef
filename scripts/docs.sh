#!/usr/bin/env bash
# The documentation site, in build/docs/html. Any warning is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p build/docs
doxygen docs/Doxyfile 2>build/docs/warnings.txt || { cat build/docs/warnings.txt; exit 1; }
if [ -s build/docs/warnings.txt ]; then
    cat build/docs/warnings.txt
    exit 1
fi
echo "build/docs/html/index.html: $(find build/docs/html -name '*.html' | wc -l) pages"
