# What is installed beside the programs and libraries: headers, documents, the emulated gateway.
#
# With stock libraries the programs look into their folder first, then wherever the device's loader
# looks; LD_LIBRARY_PATH comes before both. cpectl asks for that folder itself, when it loads one of
# them. Without them (CPECTL_PLATFORM_LIBS=OFF) there is no folder of their own.
if(CPECTL_PLATFORM_LIBS AND TARGET cpectl_platform_check)
    set_target_properties(cpectl_platform_check PROPERTIES
        INSTALL_RPATH ${CMAKE_INSTALL_PREFIX}/${CPECTL_PLATFORM_DIR}
        BUILD_WITH_INSTALL_RPATH ON)
endif()

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/cpectl
        FILES_MATCHING PATTERN "*.h")

# Manuals, the reference and the completion: what docs/ and completion/ hold.
foreach(section 1 5 8)
    file(GLOB manuals CONFIGURE_DEPENDS docs/*.${section})
    list(FILTER manuals EXCLUDE REGEX "cpectl-sim[.]1$")  # with the gateway, below
    install(FILES ${manuals} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
file(GLOB documents CONFIGURE_DEPENDS docs/*.html docs/*.md)
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR})
# The texts that they link to in other folders lie below them when installed, and so do the links.
install(FILES substitutes/README.md substitutes/MONITORING.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/substitutes)
install(FILES gateway/FORMAT.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/gateway)
install(CODE "
    file(GLOB documents \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}/*.md\")
    foreach(document IN LISTS documents)
        file(READ \"\${document}\" text)
        string(REPLACE \"](../\" \"](\" text \"\${text}\")
        file(WRITE \"\${document}\" \"\${text}\")
    endforeach()")
install(DIRECTORY docs/schemas DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
install(FILES completion/cpectl.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME cpectl OPTIONAL)

# The emulated gateway, as gateway/cpectl_sim/places.py looks for it. It runs the stock libraries
# and the static helpers of one and the same machine type.
if(CPECTL_GATEWAY AND CPECTL_PLATFORM_LIBS AND CPECTL_NETWORK_LIBS AND TARGET gateway_init
   AND TARGET recording_nvram)
    install(TARGETS gateway_init gateway_sh recorder office RUNTIME DESTINATION lib/cpectl-sim)
    foreach(name hostsort mvram netlink nvram wum)
        install(TARGETS recording_${name} LIBRARY DESTINATION lib/cpectl-sim/recording)
    endforeach()
    install(PROGRAMS gateway/cpectl-sim DESTINATION lib/cpectl-sim)
    install(DIRECTORY gateway/cpectl_sim gateway/factory gateway/scenarios
            DESTINATION lib/cpectl-sim PATTERN __pycache__ EXCLUDE)
    install(FILES docs/cpectl-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 OPTIONAL)
    install(CODE "
        # link TARGET NAME: a relative link below the prefix.
        function(link target name)
            set(root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
            cmake_path(GET name PARENT_PATH folder)
            file(RELATIVE_PATH relative \"/\${folder}\" \"/\${target}\")
            file(MAKE_DIRECTORY \"\${root}/\${folder}\")
            file(CREATE_LINK \"\${relative}\" \"\${root}/\${name}\" SYMBOLIC)
        endfunction()
        link(lib/cpectl-sim/cpectl-sim ${CMAKE_INSTALL_BINDIR}/cpectl-sim)
        set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
        link(\${completions}/cpectl \${completions}/cpectl-sim)
        link(${CPECTL_PLATFORM_DIR} lib/cpectl-sim/platform)
        link(${CMAKE_INSTALL_BINDIR}/nvram ${CPECTL_PLATFORM_DIR}/nvram)")
endif()
