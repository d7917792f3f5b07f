#!/usr/bin/env bash
# Uses a build the way a server team would, from its installation only:
# installs it to a staging prefix, builds the C host example against the
# installed SDK through pkg-config (strict C11) and through the CMake package,
# runs it against the installed module, checks that the installed tarnpb finds
# the installed module and that its manual page and bash completion work, then
# builds the Debian package and checks its contents and its libprotobuf
# dependency.  check-install.sh [BUILD_DIR]  (default: build)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/${1:-build}
stage=$build/stage
work=$build/install-check
pc=tarn-protobuf-message-type
fail() { echo "check-install: $*" >&2; exit 1; }

rm -rf "$stage" "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$stage" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$stage" -name "$pc.pc")")
export PKG_CONFIG_PATH
version=$(sed -n 's/^project([^)]*VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
[ "$(pkg-config --modversion $pc)" = "$version" ] || fail "the .pc does not say version $version"
module=$(pkg-config --variable=module $pc)
[ -f "$module" ] || fail "the .pc names $module, which is not installed"
examples=$stage/share/$pc/examples

# The C host cannot encode text format: protoc makes the wire bodies. (The
# update is a delta without the required instrument, which protoc mentions.)
for body in snapshot update; do
  protoc --encode=tarn.example.BookSnapshot -I "$examples" market_data.proto \
    <"$examples/$body.txtpb" >"$work/$body.bin" 2>/dev/null
done
run_c_host() {
  "$1" "$module" "$examples" "$work/snapshot.bin" "$work/update.bin" >"$work/$2.out" 2>&1 ||
    { cat "$work/$2.out"; fail "the C host ($2) reported mismatches"; }
  echo "C host ($2): $(tail -1 "$work/$2.out")"
}
# shellcheck disable=SC2046
cc -std=c11 -Wall -Wextra -pedantic -Werror $(pkg-config --cflags $pc) "$examples"/c_host/*.c \
  $(pkg-config --libs $pc) -ldl -rdynamic -o "$work/c_host"
run_c_host "$work/c_host" pkg-config
cmake -S "$examples/c_host" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build "$work/cmake" >/dev/null
run_c_host "$work/cmake/c_host" cmake-package

"$stage/bin/tarnpb" --version >"$work/version.out"
grep -qx "tarnpb $version" "$work/version.out" || fail "tarnpb --version does not say $version"
grep -qx "module $module" "$work/version.out" || fail "the installed tarnpb does not name the installed module"
"$stage/bin/tarnpb" demo --quiet >"$work/demo.out" 2>&1 || { cat "$work/demo.out"; fail "installed tarnpb demo"; }
grep -qx "module $module" "$work/demo.out" || fail "the installed tarnpb did not load the installed module"

# The manual page and the bash completion, as a user's shell finds them.
MANPATH=$stage/share/man man -P cat tarnpb 2>/dev/null | grep -q "tarnpb merge \[options\] STORED UPDATE" ||
  fail "man tarnpb does not show the installed manual page"
completion=$stage/share/bash-completion/completions/tarnpb
complete_words() {  # the words bash offers for the command line "$@"
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tarnpb; echo "${COMPREPLY[*]}"' \
    sh "$completion" "$@"
}
[ "$(complete_words tarnpb mer)" = merge ] || fail "bash completion does not offer the merge command"
[ "$(complete_words tarnpb parse --proto-)" = --proto-path ] ||
  fail "bash completion does not offer parse's --proto-path"
echo "man page and bash completion: installed and working"

(cd "$build" && rm -f ./*.deb && cpack -G DEB >/dev/null)
deb=$(ls "$build"/"$pc"_*.deb)
listing=$(dpkg-deb -c "$deb" | awk '{print $6}')
lib='usr/lib(/[a-z0-9_-]+)?'  # /usr/lib, or its multiarch directory
inc="usr/include/$pc"
for f in "$lib/libtarn_protobuf_message_type\.so" usr/bin/tarnpb \
  "$inc/message_type/tarn_message_type\.h" "$inc/module/tarn_module\.h" "$inc/tarn_common\.h" \
  "$inc/message_type/tarn_value_set_storage\.h" "$inc/tarn/tarn_xpath_value_set\.h" \
  "$inc/protobuf/tarn_protobuf_merge_room\.h" "$lib/libtarn_protobuf_merge_room\.a" \
  "$lib/pkgconfig/$pc\.pc" "$lib/cmake/TarnProtobufMessageType/TarnProtobufMessageTypeConfig\.cmake" \
  "$lib/cmake/TarnProtobufMessageType/TarnProtobufMessageTypeConfigVersion\.cmake" \
  "usr/share/doc/$pc/LICENSE" usr/share/man/man1/tarnpb\.1\.gz \
  usr/share/bash-completion/completions/tarnpb; do
  grep -Eqx "\./$f" <<<"$listing" || fail "$(basename "$deb") lacks /$f"
done
dpkg-deb -x "$deb" "$work/deb"
MANPATH=$work/deb/usr/share/man man -P cat tarnpb 2>/dev/null | grep -q "^TARNPB(1)" ||
  fail "man tarnpb does not work from $(basename "$deb")"
depends=$(dpkg-deb -f "$deb" Depends)
grep -q 'libprotobuf[0-9]' <<<"$depends" || fail "$(basename "$deb") does not depend on libprotobuf: $depends"
echo "package: $(basename "$deb"), depends: $depends"
