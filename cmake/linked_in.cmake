# Platform libraries as parts of a static program: each becomes one object that shows nothing but
# its calls, as a shared library would.

# Sets `out` to the calls that a linker version script lists as global.
function(cpectl_exports out exports)
    file(READ ${exports} text)
    string(REGEX MATCH "global:[^:]*" text "${text}")
    string(REGEX MATCHALL "[A-Za-z_0-9]+;" calls "${text}")
    list(TRANSFORM calls REPLACE ";" "")
    set(${out} ${calls} PARENT_SCOPE)
endfunction()

# Links the objects of the target `name` and what they need of `archives` into `name`.o, in which
# only `calls` are global; the target `name`_object makes it. In stock_`name`.o, beside it, the
# calls are called stock_`call`.
function(cpectl_linked_object name archives calls)
    set(object ${CMAKE_CURRENT_BINARY_DIR}/${name}.o)
    set(renamed ${CMAKE_CURRENT_BINARY_DIR}/stock_${name}.o)
    list(TRANSFORM calls PREPEND --keep-global-symbol= OUTPUT_VARIABLE keep)
    list(TRANSFORM calls REPLACE "(.+)" "--redefine-sym=\\1=stock_\\1" OUTPUT_VARIABLE rename)
    set(files $<TARGET_OBJECTS:${name}>)
    foreach(archive IN LISTS archives)
        list(APPEND files $<TARGET_FILE:${archive}>)
    endforeach()
    add_custom_command(
        OUTPUT ${object} ${renamed}
        COMMAND ${CMAKE_C_COMPILER} -r -nostdlib -Wl,--force-group-allocation -o ${object} ${files}
        COMMAND ${CMAKE_OBJCOPY} ${keep} ${object}
        COMMAND ${CMAKE_OBJCOPY} ${rename} ${object} ${renamed}
        DEPENDS ${name} ${files} ${archives}
        COMMAND_EXPAND_LISTS VERBATIM)
    add_custom_target(${name}_object DEPENDS ${object} ${renamed})
endfunction()
