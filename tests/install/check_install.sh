#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer twice: through the
# CMake package config and through pkg-config.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib/$(gcc -print-multiarch 2>/dev/null || true)" "$work/consumer/consumer"
pcdir=$(dirname "$(find "$work/prefix" -name tavixopt.pc | head -1)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs tavixopt)
cc "$here/consumer.c" -o "$work/consumer-pc" $flags
LD_LIBRARY_PATH="$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir tavixopt)" "$work/consumer-pc"
