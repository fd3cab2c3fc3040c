#!/usr/bin/env bash
# install_packages_test.sh ROOT: tools/install_packages with a list, a package database and an apt-get of its own.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
unset DEBIAN_FRONTEND
checkout="$work/a check out/tools"
mkdir -p "$checkout" "$work/bin"
cp "$1/tools/install_packages" "$checkout/"
printf '# what building needs\nhammer\nnails  # long ones\n\nsaw\n' >"$checkout/packages.txt"

fake() { # NAME SCRIPT: a program of that name that is found first
  printf '#!/bin/sh\n%s\n' "$2" >"$work/bin/$1"
  chmod +x "$work/bin/$1"
}
fail() {
  echo "$1"
  echo "it said: $said"
  exit 1
}
# Only these programs are there: no sudo unless a case makes one.
for name in bash dirname sed tail mktemp rm env; do ln -s "$(command -v "$name")" "$work/bin/$name"; done
run() {
  : >"$work/calls"
  code=0
  said=$(CALLS="$work/calls" PATH="$work/bin" "$work/bin/bash" "$checkout/install_packages" 2>&1) || code=$?
}
all_there='printf "hammer ii \nnails ii \nsaw ii \n"'
two_missing='printf "hammer ii \nsaw rc \n"; exit 1'
fake apt-get 'echo "$DEBIAN_FRONTEND apt-get $*" >>"$CALLS"'

fake dpkg-query "$all_there"
fake id 'echo 1000'
run
[[ $code -eq 0 && -z $said && ! -s $work/calls ]] || fail "with nothing missing it must say and do nothing"

fake dpkg-query "$two_missing"
run
[[ $code -eq 1 && $said == *"needs root or sudo"*"nails saw"* && ! -s $work/calls ]] ||
  fail "without root and sudo it must name what is missing and do nothing"

fake id 'echo 0'
run
[[ $code -eq 0 && $said == *"installing 2 missing Debian packages"*"nails saw"* ]] || fail "root: it must say what it installs"
[[ $(cat "$work/calls") == " apt-get -q update
noninteractive apt-get -q -y --no-install-recommends install nails saw" ]] || fail "root: $(cat "$work/calls")"

fake id 'echo 1000'
fake sudo 'echo sudo >>"$CALLS"; exec "$@"'
run
[[ $code -eq 0 && $(grep -c '^sudo$' "$work/calls") -eq 2 ]] || fail "with sudo it must use it: $(cat "$work/calls")"

fake apt-get 'echo "E: no such package"; exit 100'
run
[[ $code -eq 1 && $said == *"E: no such package"*"could not be installed"* ]] || fail "what apt-get said must be shown"

rm "$work/bin/dpkg-query"
run
[[ $code -eq 1 && $said == *"only Debian's packages"*"hammer nails saw"* ]] || fail "elsewhere it must name the packages"
echo "tools/install_packages does what it says"
