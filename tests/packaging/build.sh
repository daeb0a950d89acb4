#!/usr/bin/env bash
# usage: build.sh BUILD_DIRECTORY
#
# Makes the package of what BUILD_DIRECTORY holds, and one of the same under a later version, and has lintian
# look at it.
set -euo pipefail
cd "$1"
rm -rf packages
cpack -G DEB -B packages >packages.log || { cat packages.log && exit 1; }
version=$(dpkg-deb -f packages/*.deb Version)
cpack -G DEB -B packages/later -R "$version.1" >packages.log || { cat packages.log && exit 1; }
lintian --fail-on error --allow-root packages/cvanomalymgmt_"$version"_*.deb
