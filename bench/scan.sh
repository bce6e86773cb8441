#!/usr/bin/env bash
# Times the junk scan against du over the same folders, in the same run, on a Mac home and on a
# Linux home of the same size.
#
#   bench/scan.sh [FILES] [ROUNDS]
#
# A sandbox Mac is laid out in a temporary folder and its home filled with FILES (default 120000)
# files over the places the Mac's junk rules look at: Library/Caches folders of every class,
# Chromium browser profiles with their cache folders, Library/Logs, the developer places
# (DerivedData, npm, Gradle, Cargo, pip) and projects with node_modules untouched for half a year
# (so that the scan measures every file du does). A Linux home beside it gets as many files over
# the Linux rules' places: ~/.cache (browsers, thumbnails, apps, pip, go-build, yarn), Electron
# apps' caches and logs in ~/.config, Flatpak apps' caches, npm, Gradle, Cargo, Maven and the same
# projects. For each home the cache is warmed, then each round runs `brimstell junk --json` and
# `du -sk` over the same folders; the script prints the median time of each, their ratio (ours /
# du, lower is better) and each one's peak memory, and at the end both ratios.
#
# Environment: BUILD_DIR (default <repo>/build; built here when brimstell is missing), BENCH_TMP
# (where the temporary folder goes, default TMPDIR or /tmp).
set -euo pipefail

files=${1:-120000}
rounds=${2:-5}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
build=${BUILD_DIR:-$repo/build}
brimstell=$build/brimstell

if ! [[ $files =~ ^[0-9]+$ && $files -ge 1000 && $rounds =~ ^[0-9]+$ && $rounds -ge 1 ]]; then
    echo "usage: $0 [FILES >= 1000] [ROUNDS >= 1]" >&2
    exit 2
fi
command -v du >/dev/null || { echo "du is needed" >&2; exit 1; }
command -v perl >/dev/null || { echo "perl is needed to fill the home" >&2; exit 1; }
[[ -x /usr/bin/time ]] || { echo "GNU time (/usr/bin/time) is needed to measure peak memory" >&2; exit 1; }

if [[ ! -x $brimstell ]]; then
    cmake -S "$repo" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target brimstell >/dev/null
fi

work=$(mktemp -d "${BENCH_TMP:-${TMPDIR:-/tmp}}/brimstell-scan.XXXXXX")
cleanup() { rm -rf -- "$work"; }
trap cleanup EXIT
trap 'exit 130' INT TERM

# The sandbox's variables, without its sample content: the home holds only what is made below.
mac=$work/mac
eval "$("$brimstell" demo "$mac" --json | perl -MJSON::PP -e '
    my $j = decode_json(join "", <STDIN>)->{variables};
    print "export $_=\x27$j->{$_}\x27\n" for sort keys %$j;')"
home=$HOME
find "$home" -mindepth 1 -delete

# fill HOME LAYOUT: FILES files over the places of the mac or linux rules.
fill() {
echo "filling $1 ($2) with $files files"
HOME_DIR=$1 LAYOUT=$2 FILES=$files perl -e '
use strict; use warnings;
use File::Path qw(make_path);
srand(20261121);
my ($home, $want, $linux) = ($ENV{HOME_DIR}, $ENV{FILES}, $ENV{LAYOUT} eq "linux");
my $chunk = "j" x 65536;
my $made = 0;
sub put {
    my ($path, $size) = @_;
    (my $dir = $path) =~ s{/[^/]*$}{};
    make_path($dir) unless -d $dir;
    open my $fh, ">", $path or die "$path: $!";
    while ($size > 0) { my $k = $size > 65536 ? 65536 : $size; print $fh substr($chunk, 0, $k); $size -= $k; }
    close $fh;
    $made++;
}
sub size { my $r = rand(); return $r < 0.8 ? int(rand(4000)) : $r < 0.99 ? 4000 + int(rand(60000)) : 200000 + int(rand(800000)); }
# Shares of the files, by place.
my @caches = map { ("com.apple.$_", "com.example.app$_", "com.spotify.client$_", "com.adobe.x$_", "Google$_", "pip$_") } 1 .. 40;
my $cachesAt = "Library/Caches";
my @browsers = ("Google/Chrome", "Microsoft Edge", "BraveSoftware/Brave-Browser", "Vivaldi");
my @profiles = ("Default", "Profile 1", "Profile 2");
my @profileCaches = ("Code Cache/js", "GPUCache", "DawnWebGPUCache", "Service Worker/CacheStorage", "Service Worker/ScriptCache");
my $appsAt = "Library/Application Support";
my $logsAt = "Library/Logs";
my @dev = ("Library/Developer/Xcode/DerivedData/App-abc/Build", "Library/Developer/CoreSimulator/Caches/dyld",
           ".npm/_cacache/content-v2/sha512", ".gradle/caches/modules-2", ".cargo/registry/cache/index", ".cache/pip/http");
if ($linux) {
    # Entries of the cache folder; Electron apps and Flatpak apps in place of browser profiles.
    @caches = map { ("mozilla/firefox/p$_/cache2", "google-chrome/Default/Cache$_", "thumbnails/large$_", "some-app$_",
                     "spotify/Data$_", "fontconfig$_") } 1 .. 40;
    $cachesAt = ".cache";
    @browsers = ("Code", "Slack", "discord", "obsidian");
    @profiles = ("Cache", "Code Cache", "GPUCache");
    @profileCaches = ("js", "wasm", "index", "data", "blobs");
    $appsAt = ".config";
    $logsAt = ".var/app";
    @dev = (".cache/go-build/0a", ".cache/yarn/v6", ".npm/_cacache/content-v2/sha512", ".gradle/caches/modules-2",
            ".cargo/registry/cache/index", ".m2/repository/org/example");
}
my $old = time() - 200 * 86400;
my @oldDirs;
while ($made < $want) {
    my $r = rand();
    my $n = $made;
    if ($r < 0.30) {
        my $c = $caches[int(rand(@caches))];
        put("$home/$cachesAt/$c/d" . int(rand(30)) . "/f$n", size());
    } elsif ($r < 0.50) {
        my $b = $browsers[int(rand(@browsers))];
        my $p = $profiles[int(rand(@profiles))];
        my $c = $profileCaches[int(rand(@profileCaches))];
        put("$home/$appsAt/$b/$p/$c/f$n", size());
    } elsif ($r < 0.55) {
        put($linux ? "$home/$logsAt/org.example.App" . int(rand(50)) . "/cache/c$n" : "$home/$logsAt/App" . int(rand(50)) . "/log$n.log", size());
    } elsif ($r < 0.75) {
        put("$home/" . $dev[int(rand(@dev))] . "/d" . int(rand(100)) . "/f$n", size());
    } else {
        # Projects: sources and node_modules, all untouched for 200 days.
        my $p = int(rand(60));
        my $proj = "$home/Projects/group" . ($p % 6) . "/project$p";
        if (rand() < 0.9) {
            put("$proj/node_modules/pkg" . int(rand(200)) . "/lib/f$n.js", size());
        } else {
            put("$proj/src/f$n.js", size());
        }
        push @oldDirs, $proj;
    }
}
# Age the untouched projects, leaves first.
my %seen;
for my $proj (grep { !$seen{$_}++ } @oldDirs) {
    my @all;
    open my $find, "-|", "find", $proj, "-depth" or die;
    while (my $f = <$find>) { chomp $f; push @all, $f; }
    close $find;
    utime $old, $old, @all;
}
print "made $made files\n";
'
}

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
now_ns() { date +%s%N; }

# bench NAME FOLDER…: times `brimstell junk --json` (with this process's HOME and variables) against
# `du -sk` over the folders, everything the scan reads that holds the files; sets $ratio.
bench() {
local name=$1; shift
local folders=("$@")
echo
echo "== $name home"

# Written out first, then both once so the cache holds every inode before anything is timed.
sync
du -sk "${folders[@]}" >/dev/null
"$brimstell" junk --json >"$work/junk.json"

local ours_ms=() du_ms=() ours_rss=0 du_rss=0 round t0 t1 t2 rss
echo "load average before timing: $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo unknown)"
for ((round = 1; round <= rounds; round++)); do
    t0=$(now_ns); /usr/bin/time -f '%M' -o "$work/ours.m" "$brimstell" junk --json >"$work/junk.json"; t1=$(now_ns)
    /usr/bin/time -f '%M' -o "$work/du.m" du -sk "${folders[@]}" >/dev/null; t2=$(now_ns)
    ours_ms+=($(( (t1 - t0) / 1000000 ))); du_ms+=($(( (t2 - t1) / 1000000 )))
    rss=$(tail -1 "$work/ours.m"); if (( rss > ours_rss )); then ours_rss=$rss; fi
    rss=$(tail -1 "$work/du.m"); if (( rss > du_rss )); then du_rss=$rss; fi
    echo "round $round: ours ${ours_ms[-1]} ms, du ${du_ms[-1]} ms"
done

local ours_med du_med found du_total
ours_med=$(median "${ours_ms[@]}")
du_med=$(median "${du_ms[@]}")
ratio=$(awk -v a="$ours_med" -v b="$du_med" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }')
found=$(perl -MJSON::PP -e 'my $j = decode_json(join "", <STDIN>); my ($n, $s) = (0, 0);
    for (@{$j->{categories}}) { $n += $_->{itemCount}; $s += $_->{bytes} } print "$n items in ", scalar @{$j->{categories}}, " categories, $s bytes"' <"$work/junk.json")

du_total=$(du -sc -B1 "${folders[@]}" | tail -1 | cut -f1)
echo
echo "found: $found (du counts $du_total bytes in those folders, sources and bookkeeping included)"
echo "threads (hardware): $(nproc)"
echo "median: brimstell junk --json $ours_med ms, du -sk $du_med ms, ratio ours/du $ratio (target <= 0.7)"
echo "peak memory: ours $((ours_rss / 1024)) MB ($ours_rss KiB), du $((du_rss / 1024)) MB ($du_rss KiB)"
}

fill "$home" mac
bench Mac "$home/Library/Caches" "$home/Library/Application Support" "$home/Library/Logs" "$home/Library/Developer" \
    "$home/.npm" "$home/.gradle" "$home/.cargo" "$home/.cache" "$home/Projects"
mac_ratio=$ratio

# The Linux home: the platform's own rules, its state and Trash inside the home, no sandbox root.
linux=$work/linux
mkdir -p "$linux"
fill "$linux" linux
(
    unset BRIMSTELL_ROOT BRIMSTELL_PLATFORM BRIMSTELL_NOW
    export HOME=$linux XDG_CACHE_HOME=$linux/.cache XDG_DATA_HOME=$linux/.local/share
    export XDG_STATE_HOME=$linux/.local/state XDG_CONFIG_HOME=$linux/.config
    bench Linux "$linux/.cache" "$linux/.config" "$linux/.var" "$linux/.npm" "$linux/.gradle" "$linux/.cargo" \
        "$linux/.m2" "$linux/Projects"
    echo "$ratio" >"$work/linux.ratio"
)
echo
echo "ratios ours/du: Mac home $mac_ratio, Linux home $(cat "$work/linux.ratio") (target <= 0.7)"
