#!/bin/bash
# public_headers_test.sh COMPILER SCRATCH_FOLDER INCLUDE_FOLDER [ALLOWED_FOLDER...]: compiles every
# header of the include folder alone as C++17 with warnings as errors, and fails when one includes
# anything but headers of the given folders and the standard library.
set -euo pipefail
export LC_ALL=C

compiler=$1
scratch=$2
shift 2
flags=(-std=c++17 -Wall -Wextra -Wpedantic -Werror -x c++)
for folder in "$@"; do
    flags+=(-I "$folder")
done

mkdir -p "$scratch"

# prerequisites SOURCE: the files that compiling SOURCE reads, one in a line.
prerequisites() {
    "$compiler" "${flags[@]}" -M -MT target "$1" |
        sed -e 's/^target://' -e 's/\\$//' | tr ' ' '\n' | grep -v -e '^$' -e "^$1\$" |
        while read -r file; do realpath "$file"; done | sort -u
}

# What the standard library reads for all of its headers is what may be read besides our own. The
# parallel algorithms are left out, because they bring a library of their own.
for header in algorithm any array atomic bitset charconv chrono codecvt complex condition_variable \
    deque exception filesystem forward_list fstream functional future initializer_list iomanip ios \
    iosfwd iostream istream iterator limits list locale map memory memory_resource mutex new \
    numeric optional ostream queue random ratio regex scoped_allocator set shared_mutex sstream \
    stack stdexcept streambuf string string_view system_error thread tuple type_traits typeindex \
    typeinfo unordered_map unordered_set utility valarray variant vector \
    cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg \
    cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype; do
    echo "#include <$header>"
done >"$scratch/standard.cpp"
prerequisites "$scratch/standard.cpp" >"$scratch/standard.txt"
find "$(realpath "$1")" -name '*.h' | sort >"$scratch/public.txt"
for folder in "$@"; do
    find "$(realpath "$folder")" -name '*.h'
done | sort -u - "$scratch/standard.txt" >"$scratch/allowed.txt"

if [[ ! -s $scratch/public.txt ]]; then
    echo "no headers in $1" >&2
    exit 1
fi

failed=0
while read -r header; do
    source=$scratch/alone.cpp
    # Twice, to show that the header guards itself.
    printf '#include "%s"\n#include "%s"\n' "$header" "$header" >"$source"
    if ! "$compiler" "${flags[@]}" -fsyntax-only "$source"; then
        echo "$header does not compile alone" >&2
        failed=1
        continue
    fi
    foreign=$(prerequisites "$source" | comm -23 - "$scratch/allowed.txt")
    if [[ -n $foreign ]]; then
        printf '%s includes what is neither ours nor standard:\n%s\n' "$header" "$foreign" >&2
        failed=1
    fi
done <"$scratch/public.txt"
exit $failed
