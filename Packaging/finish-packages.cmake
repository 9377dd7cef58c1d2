# Run by cpack when the packages are made: mends what it cannot be told to make otherwise.

# open_package(<package> <folder>) and close_package(<package> <folder>)
function(open_package package folder)
    file(REMOVE_RECURSE ${folder})
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
function(close_package package folder)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${folder} ${package}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${folder})
endfunction()

# The list of checksums in a symbols' package names the files by the build's own paths, which no installed system
# has: it gets those of the package. The documents are those of the package that the symbols are for.
function(finish_symbols package folder)
    open_package(${package} ${folder})
    file(STRINGS ${folder}/DEBIAN/md5sums lines)
    list(TRANSFORM lines REPLACE "  .*/usr/lib/debug/" "  usr/lib/debug/")
    list(SORT lines)
    list(JOIN lines "\n" text)
    file(WRITE ${folder}/DEBIAN/md5sums "${text}\n")
    file(GLOB_RECURSE symbols ${folder}/usr/*.debug)
    file(CHMOD ${symbols} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    get_filename_component(name ${package} NAME)
    string(REGEX REPLACE "_.*" "" name ${name})
    string(REGEX REPLACE "-dbgsym$" "" described ${name})
    file(MAKE_DIRECTORY ${folder}/usr/share/doc)
    file(CREATE_LINK ${described} ${folder}/usr/share/doc/${name} SYMBOLIC)
    close_package(${package} ${folder})
endfunction()

# The cache of the libraries is brought up to date by dpkg, once, and not by a script of the package.
function(finish_library package folder)
    open_package(${package} ${folder})
    file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
    file(WRITE ${folder}/DEBIAN/triggers "activate-noawait ldconfig\n")
    close_package(${package} ${folder})
endfunction()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(folder ${CPACK_TEMPORARY_DIRECTORY}-opened)
    if(package MATCHES "\\.ddeb$")
        finish_symbols(${package} ${folder})
    elseif(package MATCHES "/libnoticeclient1_[^/]*$")
        finish_library(${package} ${folder})
    endif()
endforeach()
