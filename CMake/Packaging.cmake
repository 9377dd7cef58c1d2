# What is installed where, and the packages that cpack makes of it:
#   notice-agent            the bundle, the command post-notice, what starts the agent, its manual pages
#   post-notice             the command alone, for systems that have a brand's agent only
#   notice-agent-brand-kit  brand-notices and gallery, which make, check and draw brands
#   notice-agent-doc        the documents
#   libnoticeclient1        the library for programs that post messages
#   libnoticeclient-dev     what building with that library needs
# with packages of debug symbols. As Debian packages, or with cpack -G RPM.
include(GNUInstallDirs)

set(NOTICE_MAINTAINER "Notice Agent maintainers <maintainers@notice-agent.example>" CACHE STRING
    "Who answers for the packages: name and address")
set(agentFolder lib/notice-agent)
set(kitFolder ${CMAKE_INSTALL_DATADIR}/notice-agent/brand)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/notice-agent)
set(packaging ${PROJECT_SOURCE_DIR}/Packaging)
set(PACKAGE notice-agent)
set(LOG_FOLDER zelvik)
# As the agent makes it of the folder's name; see Contract/Bus.h.
set(BUS_NAME com.tevanic.NoticeAgent.zelvik)

# cpack installs each package's files into a folder that is named after the kind of package.
install(CODE "string(FIND \"\$ENV{DESTDIR}\" /DEB/ NOTICE_FOR_DEBIAN)" ALL_COMPONENTS)

# install_for_debian(<component> <folder> <file> [RENAME <name>])
function(install_for_debian component folder file)
    install(CODE "
        if(NOTICE_FOR_DEBIAN GREATER -1)
            file(INSTALL ${file} DESTINATION \${CMAKE_INSTALL_PREFIX}/${folder} ${ARGN})
        endif()" COMPONENT ${component})
endfunction()

find_program(GZIP gzip REQUIRED)
# compressed(<file> <name> <result>)   sets <result> to the file <name>.gz of the build
function(compressed file name result)
    set(packed ${CMAKE_BINARY_DIR}/packaging/${name}.gz)
    if(NOT TARGET packed-${name})
        add_custom_command(OUTPUT ${packed}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
            COMMAND ${GZIP} -9nc ${file} > ${packed}
            DEPENDS ${file} VERBATIM)
        add_custom_target(packed-${name} ALL DEPENDS ${packed})
    endif()
    set(${result} ${packed} PARENT_SCOPE)
endfunction()

# manual(<component> <file>)
function(manual component file)
    get_filename_component(name ${file} NAME)
    string(REGEX REPLACE ".*\\." "man" folder ${name})
    compressed(${file} ${name} packed)
    install(FILES ${packed} DESTINATION ${CMAKE_INSTALL_MANDIR}/${folder} COMPONENT ${component})
endfunction()

find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
    message(STATUS "help2man is missing: the commands get no manual pages")
endif()
# command_manual(<name> <command> <component>...)   a page made of what the command says with --help
function(command_manual name command)
    if(NOT HELP2MAN)
        return()
    endif()
    set(page ${CMAKE_BINARY_DIR}/packaging/${name}.1)
    set(more ${PROJECT_SOURCE_DIR}/docs/man/${name}.h2m)
    add_custom_command(OUTPUT ${page}
        COMMAND ${HELP2MAN} --no-info --source=Notice\ Agent --include=${more} --output=${page} ${command}
        DEPENDS ${command} ${more} VERBATIM)
    foreach(component ${ARGN})
        manual(${component} ${page})
    endforeach()
endfunction()

# --- the agent ------------------------------------------------------------------------------------

install(TARGETS NoticeAgent DESTINATION ${agentFolder}/NoticeAgent.app/Contents/Linux)
install(TARGETS ServiceTier DESTINATION ${agentFolder}/NoticeAgent.app/Contents/Frameworks)
install(FILES ${NOTICE_BUNDLE_CONTENTS}/Info.plist DESTINATION ${agentFolder}/NoticeAgent.app/Contents)
install(DIRECTORY ${NOTICE_BUNDLE_CONTENTS}/Resources DESTINATION ${agentFolder}/NoticeAgent.app/Contents)
install(FILES Resources/NoticeAgent.svg RENAME ${BUS_NAME}.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
configure_file(${packaging}/linux/${BUS_NAME}.metainfo.xml.in packaging/${BUS_NAME}.metainfo.xml @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/${BUS_NAME}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
configure_file(${packaging}/debian/tmpfiles.conf.in packaging/notice-agent.conf @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/notice-agent.conf DESTINATION lib/tmpfiles.d)
# These two hold the path of the installed bundle.
install(CODE "
    set(BUS_NAME ${BUS_NAME})
    set(BUNDLE \${CMAKE_INSTALL_PREFIX}/${agentFolder}/NoticeAgent.app)
    set(TITLE \"Notice Agent\")
    set(ICON ${BUS_NAME})
    foreach(kind service desktop)
        configure_file(${packaging}/linux/\${kind}.in ${CMAKE_BINARY_DIR}/packaging/${BUS_NAME}.\${kind} @ONLY)
    endforeach()")
install(FILES ${CMAKE_BINARY_DIR}/packaging/${BUS_NAME}.service DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
install(FILES ${CMAKE_BINARY_DIR}/packaging/${BUS_NAME}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
manual(agent ${PROJECT_SOURCE_DIR}/docs/man/notice-agent.8)
manual(agent ${PROJECT_SOURCE_DIR}/docs/man/notice-agent.5)

# --- the command ----------------------------------------------------------------------------------

foreach(component agent command)
    install(TARGETS post-notice DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
    install(FILES Packaging/linux/post-notice.completion RENAME post-notice
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
endforeach()
command_manual(post-notice $<TARGET_FILE:post-notice> agent command)

# Its symbols are among those of notice-agent.
install(CODE "
    if(NOTICE_FOR_DEBIAN GREATER -1)
        execute_process(COMMAND ${CMAKE_STRIP} --strip-unneeded
            \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/post-notice COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT command)

# --- the brand kit --------------------------------------------------------------------------------

install(TARGETS gallery DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kit)
install(PROGRAMS Packaging/brand/brand-notices DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kit)
install(FILES Packaging/debian/copyright Packaging/debian/postinst.in Packaging/debian/postrm.in
    Packaging/debian/tmpfiles.conf.in DESTINATION ${kitFolder}/debian COMPONENT kit)
install(FILES Packaging/linux/service.in Packaging/linux/desktop.in DESTINATION ${kitFolder}/linux COMPONENT kit)
install(DIRECTORY Packaging/brand/sample DESTINATION ${documents}-brand-kit/examples COMPONENT kit)
command_manual(brand-notices ${packaging}/brand/brand-notices kit)
command_manual(gallery $<TARGET_FILE:gallery> kit)

# --- the documents, in the tree's own order so that their links hold -------------------------------

install(FILES LICENSE README.md ARCHITECTURE.md CONTRIBUTING.md SECURITY.md CHANGELOG.md
    DESTINATION ${documents} COMPONENT documents)
install(FILES ServiceTier/portalGatewayServiceTier.h DESTINATION ${documents}/ServiceTier COMPONENT documents)
install(DIRECTORY docs DESTINATION ${documents} COMPONENT documents
    FILES_MATCHING PATTERN man EXCLUDE PATTERN "*.md" PATTERN "*.png" PATTERN "*.jpg")
install(DIRECTORY Tools/samples DESTINATION ${documents}/Tools COMPONENT documents)
install(FILES Client/NoticeClient.h DESTINATION ${documents}/Client COMPONENT documents)
install(DIRECTORY Client/Examples DESTINATION ${documents}/Client COMPONENT documents)

# The library's own files are named in Client/CMakeLists.txt.
manual(Development ${PROJECT_SOURCE_DIR}/docs/man/NoticeClient.3)

# --- the portable bundle ---------------------------------------------------------------------------

add_custom_target(portable
    COMMAND ${CMAKE_COMMAND} -E rm -rf notice-agent-portable
    COMMAND ${packaging}/make-portable . notice-agent-portable
    COMMAND tar --sort=name --owner=0 --group=0 -cJf notice-agent-portable.tar.xz notice-agent-portable
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    DEPENDS NoticeAgent ServiceTier BundleResources post-notice
    USES_TERMINAL VERBATIM)

# --- cpack ----------------------------------------------------------------------------------------

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME notice-agent)
# Each package has a first line of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_VENDOR "Notice Agent")
set(CPACK_PACKAGE_CONTACT "${NOTICE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_POST_BUILD_SCRIPTS ${packaging}/finish-packages.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE Apache-2.0)
set(CPACK_RPM_PACKAGE_GROUP System/GUI/Other)
set(CPACK_RPM_PACKAGE_URL https://notice-agent.example)
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /usr/lib/tmpfiles.d /usr/share/applications
    /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/dbus-1 /usr/share/dbus-1/interfaces
    /usr/share/dbus-1/services /usr/share/icons /usr/share/icons/hicolor /usr/share/icons/hicolor/scalable
    /usr/share/icons/hicolor/scalable/apps /usr/share/licenses /usr/share/man /usr/share/man/man1 /usr/share/man/man3
    /usr/share/man/man5 /usr/share/man/man8 /usr/share/metainfo /usr/lib/cmake /usr/lib/pkgconfig)

# package(<name> <component> SECTION <section> [PROGRAMS] SUMMARY <line> DESCRIPTION <text>
#     [DEBIAN <field> <value>...] [RPM <field> <value>...])
# PROGRAMS: there are compiled files in it, with libraries to depend on and debug symbols.
function(package name component)
    cmake_parse_arguments(THIS PROGRAMS "SECTION;SUMMARY;DESCRIPTION" "DEBIAN;RPM" ${ARGN})
    string(TOUPPER ${component} key)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${THIS_SECTION} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${THIS_SUMMARY}\n${THIS_DESCRIPTION}" PARENT_SCOPE)
    set(CPACK_RPM_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_RPM_${key}_PACKAGE_SUMMARY "${THIS_SUMMARY}" PARENT_SCOPE)
    set(CPACK_RPM_${key}_PACKAGE_DESCRIPTION "${THIS_DESCRIPTION}" PARENT_SCOPE)
    if(THIS_PROGRAMS)
        set(CPACK_DEBIAN_${key}_PACKAGE_SHLIBDEPS ON PARENT_SCOPE)
        set(CPACK_DEBIAN_${key}_DEBUGINFO_PACKAGE ON PARENT_SCOPE)
    else()
        set(CPACK_DEBIAN_${key}_PACKAGE_ARCHITECTURE all PARENT_SCOPE)
        set(CPACK_RPM_${key}_PACKAGE_ARCHITECTURE noarch PARENT_SCOPE)
    endif()
    foreach(kind DEBIAN RPM)
        while(THIS_${kind})
            list(POP_FRONT THIS_${kind} field value)
            set(CPACK_${kind}_${key}_PACKAGE_${field} "${value}" PARENT_SCOPE)
        endwhile()
    endforeach()
    # Debian has the text of the licence itself.
    install(CODE "
        if(NOTICE_FOR_DEBIAN EQUAL -1)
            file(INSTALL ${PROJECT_SOURCE_DIR}/LICENSE
                DESTINATION \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/licenses/${name})
        endif()" COMPONENT ${component})
    set(folder ${CMAKE_INSTALL_DATADIR}/doc/${name})
    compressed(${packaging}/debian/changelog changelog packed)
    install_for_debian(${component} ${folder} ${packed})
    install_for_debian(${component} ${folder} ${packaging}/debian/copyright)
    if(EXISTS ${packaging}/debian/${name}.lintian-overrides)
        install_for_debian(${component} ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            ${packaging}/debian/${name}.lintian-overrides RENAME ${name})
    endif()
endfunction()

set(describedNotices "The main client draws no pop-ups of its own: it posts a message on the
session bus, and the agent shows it as a branded notice in its one floating
window. There are notices for a blocked activity, for signing in again, for
the end of a VPN connection, for a session that was taken over, and for
maintenance.")

# The SVG plug-in of Qt reads the logos; nothing links it. Newer releases have a package for it.
package(notice-agent agent PROGRAMS SECTION misc
    SUMMARY "notices of a main security client"
    DESCRIPTION "${describedNotices}

The bus starts the agent when a client asks for it. The command post-notice
posts a message from a script."
    DEBIAN
    DEPENDS "qt6-svg-plugins | libqt6svg6 (<< 6.7)"
    RECOMMENDS "ca-certificates, default-dbus-session-bus | dbus-session-bus, fonts-noto-core"
    SUGGESTS "fonts-noto-cjk, notice-agent-doc, qt6-wayland, xwayland"
    PROVIDES "post-notice (= ${PROJECT_VERSION})"
    CONFLICTS post-notice
    REPLACES post-notice
    RPM
    REQUIRES qt6-qtsvg
    PROVIDES "post-notice = ${PROJECT_VERSION}"
    CONFLICTS post-notice)
package(post-notice command PROGRAMS SECTION misc
    SUMMARY "posts messages to a notice agent"
    DESCRIPTION "The command post-notice has the notice agent of a brand show a notice, and
can wait for its answer. The package notice-agent has it too. This one is for
systems with a brand's agent alone."
    DEBIAN SUGGESTS "notice-agent-doc")
set(CPACK_DEBIAN_COMMAND_DEBUGINFO_PACKAGE OFF)
package(notice-agent-brand-kit kit PROGRAMS SECTION misc
    SUMMARY "makes other brands of the notice agent"
    DESCRIPTION "The command brand-notices takes a folder with the settings, the logo and the
texts of a brand, reports what is wrong with them, and makes a branded bundle
and a branded Debian package of the installed agent. The command gallery draws
every notice of a bundle on one page. Nothing is compiled for a brand."
    DEBIAN
    DEPENDS "python3:any, qt6-svg-plugins | libqt6svg6 (<< 6.7)"
    RECOMMENDS "notice-agent (>= ${PROJECT_VERSION})"
    SUGGESTS "notice-agent-doc"
    RPM
    REQUIRES "python3, qt6-qtsvg")
package(notice-agent-doc documents SECTION doc
    SUMMARY "documents of the notice agent"
    DESCRIPTION "For integrators, brands, administrators and maintainers: what messages there
are, how to post them, how to make a brand, how to deploy the agent, and how
it is made.")
package(libnoticeclient1 Library PROGRAMS SECTION libs
    SUMMARY "C++ library that posts notices to the notice agent"
    DESCRIPTION "For programs that have the notice agent show its notices: the library has the
agent of the user's session started, posts a message to it, and waits for the
answer."
    DEBIAN SUGGESTS notice-agent)
package(libnoticeclient-dev Development PROGRAMS SECTION libdevel
    SUMMARY "C++ library that posts notices to the notice agent (development)"
    DESCRIPTION "What building a program with the library needs: the header, the static library,
files for build systems, the bus interface, and examples."
    DEBIAN
    DEPENDS "libnoticeclient1 (= ${PROJECT_VERSION}), libdbus-1-dev"
    SUGGESTS notice-agent-doc
    RPM REQUIRES "libnoticeclient1 = ${PROJECT_VERSION}")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME libnoticeclient-devel)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_PROVIDES "pkgconfig(NoticeClient) = ${PROJECT_VERSION}")
foreach(script postinst postrm)
    configure_file(${packaging}/debian/${script}.in packaging/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    list(APPEND CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/${script})
endforeach()
file(WRITE ${CMAKE_BINARY_DIR}/packaging/make-log "systemd-tmpfiles --create notice-agent.conf || :\n")
file(WRITE ${CMAKE_BINARY_DIR}/packaging/find-library "ldconfig\n")
set(CPACK_RPM_AGENT_POST_INSTALL_SCRIPT_FILE ${CMAKE_BINARY_DIR}/packaging/make-log)
set(CPACK_RPM_LIBRARY_POST_INSTALL_SCRIPT_FILE ${CMAKE_BINARY_DIR}/packaging/find-library)
set(CPACK_RPM_LIBRARY_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_BINARY_DIR}/packaging/find-library)
# What root installs is for all users, whatever root's umask.
install(CODE [[
    execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(folders)
    foreach(file IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
        cmake_path(GET file PARENT_PATH folder)
        while(folder MATCHES "^${CMAKE_INSTALL_PREFIX}")
            list(APPEND folders $ENV{DESTDIR}${folder})
            cmake_path(GET folder PARENT_PATH folder)
        endwhile()
    endforeach()
    list(REMOVE_DUPLICATES folders)
    if(user STREQUAL 0 AND folders)
        execute_process(COMMAND chmod go+rx ${folders} COMMAND_ERROR_IS_FATAL ANY)
    endif()]] ALL_COMPONENTS)

include(CPack)
