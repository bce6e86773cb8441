#!/usr/bin/env bash
# Times the folder-size walker against du on one generated tree, in the same run.
#
#   bench/size.sh [ENTRIES] [ROUNDS]
#
# ENTRIES (default 200000) files and folders are made in a temporary folder: mixed depths (a few
# long chains among a bushy tree), mixed sizes, hard links, sparse files and symbolic links to
# files and folders. The cache is warmed, then each round runs brimstell-sizebench and `du -sk`
# on the tree; the script prints the median time of each, their ratio (ours / du, lower is
# better), each one's peak memory, and whether the byte totals agree.
#
# Environment: BUILD_DIR (default <repo>/build; built here when the driver is missing),
# BENCH_TMP (where the temporary folder goes, default TMPDIR or /tmp), BENCH_TREE (an existing
# folder to measure instead of a generated tree; it is left as it is).
set -euo pipefail

entries=${1:-200000}
rounds=${2:-5}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD_DIR:-$repo/build}
driver=$build/brimstell-sizebench

if ! [[ $entries =~ ^[0-9]+$ && $entries -ge 100 && $rounds =~ ^[0-9]+$ && $rounds -ge 1 ]]; then
    echo "usage: $0 [ENTRIES >= 100] [ROUNDS >= 1]" >&2
    exit 2
fi
command -v du >/dev/null || { echo "du is needed" >&2; exit 1; }
command -v perl >/dev/null || { echo "perl is needed to build the tree" >&2; exit 1; }

if [[ ! -x $driver ]]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target brimstell-sizebench >/dev/null
fi

work=$(mktemp -d "${BENCH_TMP:-${TMPDIR:-/tmp}}/brimstell-size.XXXXXX")
cleanup() { rm -rf -- "$work"; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# build_tree FOLDER ENTRIES: fills FOLDER and prints how many entries it made.
build_tree() {
    (cd "$1" && TREE=$1 ENTRIES=$2 perl -e '
    use strict; use warnings;
    srand(20240229);
    my ($want, $root) = ($ENV{ENTRIES}, $ENV{TREE});
    my @folders = (".");
    my @files;
    my $made = 0;
    my $chunk = "b" x 4096;
    sub fill {
        my ($fh, $n) = @_;
        while ($n > 0) { my $k = $n > 4096 ? 4096 : $n; print $fh substr($chunk, 0, $k); $n -= $k; }
    }
    sub absolute { my $p = shift; $p =~ s{^\.}{$root}; return $p; }
    while ($made < $want) {
        my $r = rand();
        # Parents lean towards recent folders, so depths vary from 1 to a few dozen.
        my $pick = rand() < 0.5 ? $#folders - int(rand(@folders < 50 ? scalar @folders : 50)) : int(rand(@folders));
        my $parent = $folders[$pick];
        if ($r < 0.085 || @folders < 20) {
            my $dir = "$parent/d$made";
            mkdir $dir or die "mkdir $dir: $!";
            push @folders, $dir; $made++;
        } elsif ($r < 0.0853 && $made + 40 < $want) {
            # A long chain of single folders.
            my $dir = $parent;
            for my $i (1 .. 40) { $dir .= "/c$i"; mkdir $dir or die "mkdir $dir: $!"; $made++; }
            push @folders, $dir;
        } elsif ($r < 0.095 && @files) {
            link $files[int(rand(@files))], "$parent/h$made" or die "link: $!"; $made++;
        } elsif ($r < 0.100 && @files) {
            # Links to files (the big sparse ones too), to folders and to nothing: none is followed.
            my $s = rand();
            my $to = $s < 0.45 ? absolute($files[int(rand(@files))])
                   : $s < 0.9 ? absolute($folders[int(rand(@folders))]) : "../missing/$made";
            symlink $to, "$parent/s$made" or die "symlink: $!"; $made++;
        } elsif ($r < 0.101) {
            my $f = "$parent/sparse$made";
            open my $fh, ">", $f or die "open $f: $!"; binmode $fh;
            seek $fh, int(rand(64)) * 1048576, 0; print $fh "x" x 5000;
            truncate $fh, (64 + int(rand(64))) * 1048576; close $fh;
            push @files, $f; $made++;
        } else {
            my $f = "$parent/f$made";
            open my $fh, ">", $f or die "open $f: $!"; binmode $fh;
            my $s = rand();
            fill($fh, $s < 0.85 ? int(rand(3000)) : $s < 0.995 ? 3000 + int(rand(29000)) : 65536 + int(rand(458752)));
            close $fh;
            push @files, $f; $made++;
        }
    }
    print "$made\n";
')
}

if [[ -n ${BENCH_TREE:-} ]]; then
    tree=$BENCH_TREE
    [[ -d $tree ]] || { echo "BENCH_TREE $tree is not a folder" >&2; exit 2; }
    made="(given)"
else
    tree=$work/tree
    mkdir "$tree"
    echo "building a tree of $entries entries in $tree"
    made=$(build_tree "$tree" "$entries")
fi
echo "made $made entries; $(find "$tree" -type d | wc -l) folders, deepest $(find "$tree" -printf '%d\n' | sort -n | tail -1) levels"

# Written out first (otherwise the timings measure the disk flushing the new tree), then both
# programs once, so the cache holds every inode before anything is timed.
sync
du -sk "$tree" >/dev/null
"$driver" "$tree" >/dev/null

measure() {  # measure OUT COMMAND...: runs it, leaving "SECONDS MAX_RSS_KIB USER_S SYS_S" in OUT
    local out=$1; shift
    if [[ -x /usr/bin/time ]]; then
        /usr/bin/time -f '%e %M %U %S' -o "$out" "$@"
    else
        "$driver" --measure "$out" -- "$@"
    fi
}
now_ns() { date +%s%N; }

cpu_ms() { awk '{ printf "%d", ($3 + $4) * 1000 }' "$1"; }
ours_ms=(); du_ms=(); ours_cpu=(); du_cpu=(); ours_rss=0; du_rss=0
echo "load average before timing: $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"
for ((round = 1; round <= rounds; round++)); do
    t0=$(now_ns); measure "$work/ours.m" "$driver" --kib "$tree" >"$work/ours.out"; t1=$(now_ns)
    measure "$work/du.m" du -sk "$tree" >"$work/du.out"; t2=$(now_ns)
    ours_ms+=($(( (t1 - t0) / 1000000 ))); du_ms+=($(( (t2 - t1) / 1000000 )))
    ours_cpu+=($(cpu_ms "$work/ours.m")); du_cpu+=($(cpu_ms "$work/du.m"))
    read -r _ rss _ <"$work/ours.m"; if (( rss > ours_rss )); then ours_rss=$rss; fi
    read -r _ rss _ <"$work/du.m"; if (( rss > du_rss )); then du_rss=$rss; fi
    echo "round $round: ours ${ours_ms[-1]} ms (cpu ${ours_cpu[-1]} ms), du ${du_ms[-1]} ms (cpu ${du_cpu[-1]} ms)"
done

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
ours_med=$(median "${ours_ms[@]}")
du_med=$(median "${du_ms[@]}")
ratio=$(awk -v a="$ours_med" -v b="$du_med" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }')

# du -sk rounds the byte total up to KiB once, as --kib does; -B1 gives the bytes themselves.
# -x because the walker stays on one file system (the tree holds no mount, so it changes nothing).
ours_kib=$(cut -f1 "$work/ours.out"); du_kib=$(cut -f1 "$work/du.out")
ours_bytes=$("$driver" "$tree" | cut -f1); du_bytes=$(du -sx -B1 "$tree" | cut -f1)
agree=no
[[ $ours_bytes == "$du_bytes" && $ours_kib == "$du_kib" ]] && agree=yes

echo
echo "threads (hardware): $(nproc)"
echo "median: ours $ours_med ms, du -sk $du_med ms, ratio ours/du $ratio"
echo "median cpu (user+sys, all threads): ours $(median "${ours_cpu[@]}") ms, du $(median "${du_cpu[@]}") ms"
echo "peak memory: ours $((ours_rss / 1024)) MB ($ours_rss KiB), du $((du_rss / 1024)) MB ($du_rss KiB)"
echo "totals: ours $ours_bytes bytes / $ours_kib KiB, du -s -B1 $du_bytes bytes / du -sk $du_kib KiB; agree: $agree"
[[ $agree == yes ]]
