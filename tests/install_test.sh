#!/usr/bin/env bash
# Installs a build, moves the installed tree elsewhere, and uses it from there: the command line
# without any environment, and the examples built through CMake and through pkg-config.
#
#   install_test.sh CMAKE GENERATOR BUILD_FOLDER SOURCE_FOLDER C++_COMPILER PKG_CONFIG LIBRARY_FOLDER
set -euo pipefail
cmake=$1 generator=$2 build=$3 source=$4 compiler=$5 pkg_config=$6 library_folder=$7

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

"$cmake" --install "$build" --prefix "$folder/installed" >"$folder/log" || fail "$(cat "$folder/log")"
tree="$folder/moved to here"
mv "$folder/installed" "$tree"
libraries="$tree/$library_folder"

for path in "$tree/include/vorneffects/VornEffects.h" "$libraries/libVornEffects.so.0.1" \
    "$libraries/VornEffects/VornEffectsManifest.plist" "$libraries/VornEffects/FX_error_image.png"; do
    [ -f "$path" ] || fail "there is no $path"
done
for kernel in "$source"/kernels/*/*.kernel; do
    name=$(basename "$kernel" .kernel).ci.metallib
    [ -f "$libraries/VornEffects/$name" ] || fail "the kernel library $name is not installed"
done
cmp <(cd "$source/include" && ls vorneffects) <(cd "$tree/include" && ls vorneffects) ||
    fail "not every header is installed"

for path in share/man/man1/vorn.1 share/bash-completion/completions/vorn share/zsh/site-functions/_vorn \
    share/fish/vendor_completions.d/vorn.fish share/vorneffects/chain.schema.json; do
    [ -s "$tree/$path" ] || fail "there is no $path"
done

# The command line finds its library and its resources, whatever is installed elsewhere.
env -i "$tree/bin/vorn" doctor >"$folder/doctor" || fail "vorn doctor: $(cat "$folder/doctor")"
grep -qF "$libraries/VornEffects" "$folder/doctor" || fail "vorn uses another installation"

[ "$(env -i "$tree/bin/vorn" list --presets --names | wc -l)" = "$(ls "$source/hosts/common/presets" | wc -l)" ] ||
    fail "the installed vorn does not find its presets"

expected='grey 0 became 0, 64 became 128, 255 became 0'
check_example() { # a program, and how it was built
    output=$(LD_LIBRARY_PATH="$libraries" "$1" "$folder/picture.ppm") || fail "$2: $output"
    [[ $output == *"$expected" ]] || fail "$2: it printed '$output'"
    [ "$(head -c 15 "$folder/picture.ppm")" = $'P6\n256 64\n255' ] || fail "$2: no picture was written"
    rm "$folder/picture.ppm"
}

"$cmake" -G "$generator" -S "$source/examples" -B "$folder/examples" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$tree" >"$folder/log" 2>&1 &&
    "$cmake" --build "$folder/examples" >>"$folder/log" 2>&1 || fail "$(cat "$folder/log")"
check_example "$folder/examples/minimal_host" "CMake"
output=$(LD_LIBRARY_PATH="$libraries" "$folder/examples/two_players" "$folder/left.ppm" "$folder/right.ppm") ||
    fail "two players: $output"
[[ $output == *"each shows what it shows alone" ]] || fail "two players: '$output'"
cmp -s "$folder/left.ppm" "$folder/right.ppm" && fail "two players show one picture"
"$folder/examples/contact_sheet" "$source/resources/FX_error_image.png" "$folder/sheet.ppm" >/dev/null ||
    fail "the contact sheet was not made"
[ "$(head -c 2 "$folder/sheet.ppm")" = P6 ] || fail "the contact sheet is no picture"

export PKG_CONFIG_PATH="$libraries/pkgconfig"
eval "flags=($("$pkg_config" --cflags --libs vorneffects))" # it quotes blanks for the shell
"$compiler" -std=c++20 "$source/examples/minimal_host.cpp" -o "$folder/host" "${flags[@]}"
check_example "$folder/host" "pkg-config"
