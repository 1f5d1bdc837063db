#!/usr/bin/env bash
# Builds the project on a Debian machine and shows hivectl at work on a sample hive made by the project itself.
. "$(dirname "$0")/lib.sh"

ensure_packages "${BUILD_PACKAGES[@]}"
build release

SAMPLES=build/samples
HIVECTL=build/release/bin/hivectl
mkdir -p "$SAMPLES"
build/release/bin/make_sample "$SAMPLES/sample-1.3.hive" 3
build/release/bin/make_sample "$SAMPLES/sample-1.5.hive" 5

show() {
    echo
    echo "\$ $*"
    "$@"
}

show $HIVECTL info "$SAMPLES/sample-1.5.hive"
show $HIVECTL tree "$SAMPLES/sample-1.5.hive" --depth 3
show $HIVECTL ls "$SAMPLES/sample-1.5.hive" Software/Acme/Editor
show $HIVECTL get "$SAMPLES/sample-1.5.hive" Software/Acme/Editor Greeting
show $HIVECTL get "$SAMPLES/sample-1.5.hive" Software/Acme/Editor "Recent files"
show $HIVECTL get "$SAMPLES/sample-1.5.hive" Software/Acme/Editor Layout --hex
show $HIVECTL find "$SAMPLES/sample-1.5.hive" greeting
show $HIVECTL export "$SAMPLES/sample-1.5.hive" Software/Acme -o "$SAMPLES/acme.reg" --prefix HKEY_CURRENT_USER/Software
echo
echo "\$ iconv -f UTF-16 -t UTF-8 $SAMPLES/acme.reg | head -20"
iconv -f UTF-16 -t UTF-8 "$SAMPLES/acme.reg" | head -20 || true
show $HIVECTL info "$SAMPLES/sample-1.3.hive" --json
