#!/bin/sh
# usage: settings_guide.sh PROGRAM GUIDE
#
# Whether the guide is what the program prints, byte for byte.
"$1" guide | cmp - "$2" && exit
echo "Renew it: cmake --build BUILD_DIRECTORY --target renew_settings_guide" >&2
exit 1
