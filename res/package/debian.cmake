# The Debian package: everything `cmake --install` puts under /usr, with the shared
# libraries' packages found by dpkg-shlibdeps rather than listed by hand.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korvelapp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "photo program to bring in, improve and share photos")
set(CPACK_PACKAGE_DESCRIPTION
    "KorvelApp gathers photos from a camera or from JPEG, BMP and TIFF files into
one work area, shows them as thumbnails and improves one at a time: rotate,
crop, zoom, red-eye removal and colour correction by clicking on the sky,
grass and leaves, skin or a neutral grey. Photos can then be saved, printed,
sent by e-mail, handed to another editor or listed with an online service.
.
The package also holds korvel-raster, a command-line tool that reports on
photo files, converts between their formats and runs the same edits.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "KorvelApp authors <maintainers@korvel-online.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://www.korvel-online.example/")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Qt finds its window-system plugin at run time, so no library link names it; the
# program cannot show a window without it.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
# The artwork's captions and the help line ask for Arial, which these fonts stand in
# for; xdg-email is one of the ways a photo reaches the e-mail program.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-liberation, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
include(CPack)
