#!/usr/bin/env bash
# The interface of the public library, down to the place of each field of a record, is the one that
# programs were compiled with. A failing run prints how a change that is meant is taken over.
set -uo pipefail
frozen=$VEK_SOURCE/tests/data/ztvek_r.abi
if ! command -v abidiff >/dev/null || [ "$(uname -m)" != x86_64 ]; then
  echo 'skipped: needs abigail-tools, and the processor that tests/data/ztvek_r.abi was made on'
  exit 77
fi
# Without --harmless the name of a field could change.
abidiff --harmless --no-show-locs "$frozen" "$VEK_BUILD/lib64/libztvek_r.so" && exit 0
cat <<'END'
A program that was compiled earlier may not run with this library. If that is meant:
  abidw --exported-interfaces-only --type-id-style hash --no-show-locs --no-corpus-path \
    --no-comp-dir-path --no-elf-needed build/test/lib64/libztvek_r.so >tests/data/ztvek_r.abi
END
exit 1
