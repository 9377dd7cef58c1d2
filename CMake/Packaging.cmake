# What is installed where, and the Debian packages that cpack makes of it:
#   notice-agent            the bundle, post-notice, gallery, manual pages, documents
#   notice-agent-dbgsym     its debug symbols
#   notice-agent-brand-kit  the command that makes other brands of the bundle
#   libnoticeclient-dev     the library for programs that post messages
include(GNUInstallDirs)

set(NOTICE_MAINTAINER "Notice Agent maintainers <maintainers@notice-agent.example>" CACHE STRING
    "Who answers for the packages: name and address")
set(agentFolder lib/notice-agent)
set(kitFolder ${CMAKE_INSTALL_DATADIR}/notice-agent/brand)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/notice-agent)

# Functions and lines, for the symbols' package, in what is shipped and in no test; paths as in the source tree,
# so that the same source gives the same package wherever it is built.
target_compile_options(NoticeOptions INTERFACE
    $<$<AND:$<CONFIG:Release>,$<BOOL:$<TARGET_PROPERTY:NOTICE_SHIPPED>>>:-g1>
    $<$<AND:$<CONFIG:Release>,$<BOOL:$<TARGET_PROPERTY:NOTICE_SHIPPED>>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
set_target_properties(NoticeAgent ServiceTier post-notice gallery Controllers Support Platform PlatformQt
    PlatformSystem NoticeClient NoticeClientObjects PROPERTIES NOTICE_SHIPPED ON)

# --- the package of the agent ---------------------------------------------------------------------

install(TARGETS NoticeAgent DESTINATION ${agentFolder}/NoticeAgent.app/Contents/Linux)
install(TARGETS ServiceTier DESTINATION ${agentFolder}/NoticeAgent.app/Contents/Frameworks)
install(FILES ${NOTICE_BUNDLE_CONTENTS}/Info.plist DESTINATION ${agentFolder}/NoticeAgent.app/Contents)
install(DIRECTORY ${NOTICE_BUNDLE_CONTENTS}/Resources DESTINATION ${agentFolder}/NoticeAgent.app/Contents)
install(FILES README.md ARCHITECTURE.md CONTRIBUTING.md SECURITY.md DESTINATION ${documents})
install(FILES ServiceTier/portalGatewayServiceTier.h DESTINATION ${documents}/ServiceTier)
install(DIRECTORY docs DESTINATION ${documents} FILES_MATCHING PATTERN "*.md" PATTERN "*.png")
install(DIRECTORY Tools/samples DESTINATION ${documents}/Tools)

# --- the package of the brand kit -----------------------------------------------------------------

install(PROGRAMS Packaging/brand/brand-notices DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT kit)
install(PROGRAMS Scripts/check-tables DESTINATION ${kitFolder} COMPONENT kit)
install(FILES Packaging/debian/copyright Packaging/debian/postinst.in Packaging/debian/postrm.in
    Packaging/debian/tmpfiles.conf.in DESTINATION ${kitFolder}/debian COMPONENT kit)
install(DIRECTORY Packaging/brand/sample DESTINATION ${documents}-brand-kit/examples COMPONENT kit)

# --- what only a Debian package has ---------------------------------------------------------------

find_program(GZIP gzip REQUIRED)
set(debian ${CMAKE_BINARY_DIR}/debian)
set(PACKAGE notice-agent)
set(LOG_FOLDER zelvik)
foreach(script postinst postrm)
    configure_file(Packaging/debian/${script}.in ${debian}/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
configure_file(Packaging/debian/tmpfiles.conf.in ${debian}/notice-agent.conf @ONLY)
install(FILES ${debian}/notice-agent.conf DESTINATION lib/tmpfiles.d)

# compressed(<file> <folder> <name> <component>)   installs it as <name>.gz
function(compressed file folder name component)
    set(packed ${debian}/${component}/${name}.gz)
    add_custom_command(OUTPUT ${packed}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${debian}/${component}
        COMMAND ${GZIP} -9nc ${file} > ${packed}
        DEPENDS ${file} VERBATIM)
    string(MAKE_C_IDENTIFIER "packed-${component}-${name}" target)
    add_custom_target(${target} ALL DEPENDS ${packed})
    install(FILES ${packed} DESTINATION ${folder} COMPONENT ${component})
endfunction()

# package_documents(<package> <component>)
function(package_documents package component)
    set(folder ${CMAKE_INSTALL_DATADIR}/doc/${package})
    compressed(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${folder} changelog ${component})
    compressed(${PROJECT_SOURCE_DIR}/Packaging/debian/changelog ${folder} changelog.Debian ${component})
    install(FILES Packaging/debian/copyright DESTINATION ${folder} COMPONENT ${component})
    install(FILES Packaging/debian/${package}.lintian-overrides RENAME ${package}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
endfunction()

set(manuals ${CMAKE_INSTALL_MANDIR}/man1)
package_documents(notice-agent agent)
package_documents(notice-agent-brand-kit kit)
package_documents(libnoticeclient-dev Development)
compressed(${PROJECT_SOURCE_DIR}/Tools/PostNotice/post-notice.1 ${manuals} post-notice.1 agent)
compressed(${PROJECT_SOURCE_DIR}/Tools/Gallery/gallery.1 ${manuals} gallery.1 agent)
compressed(${PROJECT_SOURCE_DIR}/Packaging/brand/brand-notices.1 ${manuals} brand-notices.1 kit)

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
set(CPACK_COMPONENTS_ALL agent kit Development)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/Packaging/finish-packages.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME notice-agent)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_AGENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_AGENT_DEBUGINFO_PACKAGE ON)
# What is loaded by name at run time and linked by nothing: the reader of SVG logos. The windows' own plug-in is in
# libqt6gui6, which is linked.
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS "libqt6svg6 (>= 6.4)")
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS
    "ca-certificates, default-dbus-session-bus | dbus-session-bus, fonts-noto-core")
set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS "fonts-noto-cjk, notice-agent-brand-kit, qt6-wayland, xwayland")
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${debian}/postinst ${debian}/postrm)
set(CPACK_DEBIAN_AGENT_DESCRIPTION "notices of a main security client
The main client draws no pop-ups of its own: it starts this agent and posts one
message on the session bus, and the agent shows it as a branded notice in its
one floating window. There are notices for a blocked activity, for signing in
again, for the end of a VPN connection, for a session that was taken over, and
for maintenance.

With it come post-notice, which posts a message from a script, and gallery,
which draws every notice of a bundle on one page.")
set(CPACK_DEBIAN_KIT_PACKAGE_NAME notice-agent-brand-kit)
set(CPACK_DEBIAN_KIT_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_KIT_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_KIT_PACKAGE_DEPENDS "notice-agent (>= ${PROJECT_VERSION}), python3:any")
set(CPACK_DEBIAN_KIT_DESCRIPTION "makes other brands of the notice agent
The command brand-notices takes a folder with the settings, the logo and the
texts of a brand, says in plain words what is wrong or doubtful about them, and
makes a branded bundle and a branded Debian package of the installed agent.
Nothing is compiled for it.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnoticeclient-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEVELOPMENT_DEBUGINFO_PACKAGE ON)
# The static library is linked with it.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libdbus-1-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS notice-agent)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "C++ library that posts notices to the notice agent
For programs that have the notice agent show its notices: the library starts
the agent of a user's session, posts a message to it, and waits for the answer.
It comes as a shared and as a static library, with a header, and with files for
CMake and pkg-config.")
include(CPack)
