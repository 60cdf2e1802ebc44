# The public keys whose manifest signatures the installer accepts: one, or two while a key is
# being rotated. A release build takes them from BRISA_MANIFEST_PUBLIC_KEYS (a PEM file holding
# one or two public keys) and refuses to configure without it. Every other build makes a
# throwaway pair of keys in its build tree (signing/), which the demo and the tests sign with;
# no private key is ever in the repository.
#
# Sets BRISA_MANIFEST_KEYS_HEADER_DIR, the directory of the generated manifest_public_keys.h.

set(BRISA_MANIFEST_PUBLIC_KEYS "" CACHE FILEPATH "PEM file with the publisher's manifest signing public key(s)")
find_program(BRISA_OPENSSL openssl REQUIRED)
set(BRISA_SIGNING_DIR ${PROJECT_BINARY_DIR}/signing)
file(MAKE_DIRECTORY ${BRISA_SIGNING_DIR})

set(key_files)
if(BRISA_MANIFEST_PUBLIC_KEYS)
    file(READ ${BRISA_MANIFEST_PUBLIC_KEYS} pem_text)
    string(REGEX MATCHALL "-----BEGIN PUBLIC KEY-----[^-]+-----END PUBLIC KEY-----" pem_keys "${pem_text}")
    set(index 0)
    foreach(pem ${pem_keys})
        math(EXPR index "${index} + 1")
        file(WRITE ${BRISA_SIGNING_DIR}/release-key-${index}.pub.pem "${pem}\n")
        list(APPEND key_files ${BRISA_SIGNING_DIR}/release-key-${index}.pub.pem)
    endforeach()
elseif(NOT BRISA_DEV_ENDPOINT)
    message(FATAL_ERROR "A release build needs the publisher's manifest public key(s): "
        "-DBRISA_MANIFEST_PUBLIC_KEYS=<file.pem> (see README, Releases)")
else()
    # The current key and the next one, so that rotation is exercised too; a third key that no
    # build accepts stands for a stranger's key in the tests.
    foreach(name manifest-key manifest-key-next stranger-key)
        if(NOT EXISTS ${BRISA_SIGNING_DIR}/${name}.pem)
            execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/sign-manifest --new-key ${BRISA_SIGNING_DIR}/${name}.pem
                OUTPUT_QUIET RESULT_VARIABLE made)
            if(NOT made EQUAL 0)
                message(FATAL_ERROR "Unable to make the throwaway manifest key ${name}")
            endif()
        endif()
    endforeach()
    set(key_files ${BRISA_SIGNING_DIR}/manifest-key.pub.pem ${BRISA_SIGNING_DIR}/manifest-key-next.pub.pem)
endif()
list(LENGTH key_files key_count)
if(key_count LESS 1 OR key_count GREATER 2)
    message(FATAL_ERROR "The installer accepts one or two manifest public keys, not ${key_count}")
endif()

# A P-256 public key in DER (SubjectPublicKeyInfo) is a fixed 26-byte prefix and the 65-byte
# uncompressed point; the point is what the installer imports.
set(spki_prefix "3059301306072a8648ce3d020106082a8648ce3d030107034200")
set(key_rows "")
foreach(pem ${key_files})
    execute_process(COMMAND ${BRISA_OPENSSL} pkey -pubin -in ${pem} -outform DER -out ${pem}.der
        RESULT_VARIABLE converted ERROR_QUIET)
    file(READ ${pem}.der der HEX)
    string(LENGTH "${der}" der_length)
    string(SUBSTRING "${der}" 0 52 prefix)
    if(NOT converted EQUAL 0 OR NOT der_length EQUAL 182 OR NOT prefix STREQUAL spki_prefix)
        message(FATAL_ERROR "${pem} is not an ECDSA P-256 public key")
    endif()
    string(SUBSTRING "${der}" 52 130 point)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," point "${point}")
    string(APPEND key_rows "    { ${point} },\n")
endforeach()
set(BRISA_MANIFEST_KEYS_HEADER_DIR ${PROJECT_BINARY_DIR}/generated)
string(CONCAT header "// Generated at configure time from the manifest signing public keys.\n#pragma once\n\n"
    "namespace ManifestPublicKeys {\n\ninline constexpr unsigned char points[][65] = {\n${key_rows}};\n\n}\n")
file(CONFIGURE OUTPUT ${BRISA_MANIFEST_KEYS_HEADER_DIR}/download/manifest_public_keys.h CONTENT "${header}")
