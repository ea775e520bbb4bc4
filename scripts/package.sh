#!/usr/bin/env bash
# Builds the Debian package of the default preset and checks it: the files it must hold
# (dpkg-deb --contents), lintian when it is installed (it is not installed by setup.sh: it pulls
# in over a hundred packages), and systemd-analyze verify on the unit when systemd-analyze exists.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh package
cmake --preset default >/dev/null
# The package target would build everything first (tests, benchmarks); build only what the
# package holds, then pack.
pieces=(acl aclctl package_doc)
if grep -q '^HELP2MAN:FILEPATH=/' build/default/CMakeCache.txt; then pieces+=(manpages); fi
cmake --build --preset default -j "$(nproc)" --target "${pieces[@]}" >/dev/null
(cd build/default && cpack --config CPackConfig.cmake >/dev/null)
deb=$(ls -t build/default/acl-manager_*.deb | head -n1)
echo "package: $deb"

contents=$(dpkg-deb --contents "$deb")
missing=0
for f in ./usr/bin/acl ./usr/bin/aclctl ./usr/share/man/man8/acl.8.gz \
         ./usr/share/man/man8/aclctl.8.gz ./lib/systemd/system/acl.service ./etc/acl/acl.conf \
         ./usr/share/bash-completion/completions/aclctl; do
  if ! grep -q " $f\$" <<<"$contents"; then
    echo "package: $f is missing" >&2
    missing=1
  fi
done
if ! dpkg-deb --info "$deb" conffiles | grep -qx /etc/acl/acl.conf; then
  echo "package: /etc/acl/acl.conf is not a conffile" >&2
  missing=1
fi
[ "$missing" -eq 0 ] || exit 1
echo "package: contents ok"

if command -v lintian >/dev/null; then
  # Errors fail the check; warnings are shown.
  lintian --fail-on error "$deb"
  echo "package: lintian ok"
else
  echo "package: lintian not installed, not run"
fi

if command -v systemd-analyze >/dev/null; then
  # The unit names /usr/bin/acl, which exists only once the package is installed: verify a copy
  # that names the built binary instead.
  tmp=$(mktemp -d)
  trap 'rm -rf "$tmp"' EXIT
  sed "s|/usr/bin/acl|$PWD/build/default/src/main/acl|" packaging/acl.service >"$tmp/acl.service"
  # The manual pages it names are in the package, not yet on this machine.
  systemd-analyze verify --man=no "$tmp/acl.service"
  echo "package: systemd-analyze verify ok"
fi
