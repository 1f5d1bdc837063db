#!/usr/bin/env bash
# Builds the project on a Debian machine and shows hivectl at work: our sample text becomes a hive, is changed,
# exported, imported into a second hive of the other version, and both turn out to hold the same.
. "$(dirname "$0")/lib.sh"

ensure_packages "${BUILD_PACKAGES[@]}"
build release hivectl

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ln -s "$ROOT/build/release/bin/hivectl" "$work/hivectl"
cp examples/sample.reg "$work/"
cd "$work"
PATH=$work:$PATH

# Echoes a command as one could type it, then runs it.
show() {
    local word line=
    for word in "$@"; do
        case $word in
            *[!A-Za-z0-9_./-]* | '') line+=" '$word'" ;;
            *) line+=" $word" ;;
        esac
    done
    echo
    echo "\$$line"
    "$@"
}

show hivectl new acme.hive
show hivectl import acme.hive sample.reg
show hivectl tree acme.hive --values
show hivectl get acme.hive Software/Acme/Editor Greeting
show hivectl get acme.hive Software/Acme/Editor Layout --hex
show hivectl set acme.hive Software/Acme/Editor Greeting sz 'Good morning'
show hivectl get acme.hive Software/Acme/Editor Greeting
show hivectl export acme.hive -o acme.reg
show hivectl new second.hive --format 1.3
show hivectl import second.hive acme.reg
show hivectl info acme.hive
show hivectl info second.hive
show hivectl sd second.hive
show hivectl export second.hive -o second.reg
show cmp acme.reg second.reg
echo
echo "Both hives hold the same: their exports are equal, $(stat -c %s acme.reg) bytes each."
