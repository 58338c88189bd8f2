#!/usr/bin/env bash
# Checks the C and C++ sources against .clang-format without changing them: prints each file that
# clang-format would change and fails if there is one. CLANG_FORMAT names another binary.
set -euo pipefail
cd "$(dirname "$0")/.."
clang_format=${CLANG_FORMAT:-clang-format}
unformatted=()
while IFS= read -r -d '' file; do
  "$clang_format" --dry-run --Werror "$file" >/dev/null 2>&1 || unformatted+=("$file")
done < <(find Source core tools tests bench python fuzz -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.c' \) -print0 | sort -z)
if [ ${#unformatted[@]} -gt 0 ]; then
  echo "not formatted by $clang_format (${#unformatted[@]} files):"
  printf '  %s\n' "${unformatted[@]}"
  exit 1
fi
echo "all sources formatted"
