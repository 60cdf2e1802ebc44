# Authenticode signatures on the executables we ship. Configure with the publisher's certificate
# chain and key (and, for a real release, a time-stamping server) and the build signs the
# uninstaller right after linking it, so that the installer embeds the signed copy, and then the
# installer itself. Without a certificate nothing is signed.
set(BRISA_SIGN_CERT "" CACHE FILEPATH "Code-signing certificate chain (PEM or DER) for the shipped executables; empty: unsigned")
set(BRISA_SIGN_KEY "" CACHE FILEPATH "Private key of BRISA_SIGN_CERT")
set(BRISA_SIGN_TIMESTAMP_URL "" CACHE STRING "RFC 3161 time-stamping server for the signatures (real releases)")
if(BRISA_SIGN_CERT AND NOT BRISA_SIGN_KEY)
    message(FATAL_ERROR "BRISA_SIGN_CERT is set without BRISA_SIGN_KEY")
endif()

# brisa_sign_after_build(<target> <description shown by Windows>)
function(brisa_sign_after_build target description)
    if(NOT WIN32 OR NOT BRISA_SIGN_CERT)
        return()
    endif()
    set(timestamp)
    if(BRISA_SIGN_TIMESTAMP_URL)
        set(timestamp --timestamp ${BRISA_SIGN_TIMESTAMP_URL})
    endif()
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${PROJECT_SOURCE_DIR}/tools/sign-executable --cert ${BRISA_SIGN_CERT} --key ${BRISA_SIGN_KEY}
                --name ${description} ${timestamp} $<TARGET_FILE:${target}>
        COMMENT "Signing $<TARGET_FILE_NAME:${target}>"
        VERBATIM)
endfunction()
