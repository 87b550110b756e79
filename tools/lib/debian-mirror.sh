# shellcheck shell=bash
# Where Debian's own packages come from. Sourced, not run.

# The mirror and the release that this machine installs from, as "URI CODENAME".
debian_mirror() {
    # shellcheck disable=SC2016  # apt's own variables
    apt-get indextargets --format '$(REPO_URI) $(CODENAME)' \
        'Identifier: Packages' 'Origin: Debian' 'Label: Debian' 'Component: main' | grep -v -- - | sed -n 1p
}
