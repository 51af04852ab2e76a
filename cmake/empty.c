/* SPDX-License-Identifier: Apache-2.0 */
/* CMake wants a source for the shared library; its content comes from the folders. */
typedef int krel_empty;
