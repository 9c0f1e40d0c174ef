# Read by cpack for each kind of package: Debian's belong under /usr, a tarball of sources under its own name alone.
if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
