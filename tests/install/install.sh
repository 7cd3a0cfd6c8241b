#!/usr/bin/env bash
# install.sh CMAKE BUILD SOURCE WORK: installs BUILD into WORK/prefix, a place that it was not
# configured for, and has the example clients built and run from there.
set -euo pipefail
cmake=$1 build=$2 source=$3 work=$4
prefix=$work/prefix
rm -rf "$prefix" "$work/clients"

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"
library=$(dirname "$(find "$prefix" -name liborvanite.so)")
export CMAKE_PREFIX_PATH=$prefix LD_LIBRARY_PATH=$library PKG_CONFIG_PATH=$library/pkgconfig
"$(dirname "$0")/clients.sh" "$source/examples/client" "$work/clients"
