<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP">
<context>
    <name>ArchiveExtractor</name>
    <message>
        <location filename="../../src/extract/archive_extractor.cpp" line="+134"/>
        <source>Unable to open the downloaded ZIP package.</source>
        <translation>ダウンロードした ZIP パッケージを開けません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The downloaded ZIP package is invalid.</source>
        <translation>ダウンロードした ZIP パッケージが無効です。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The ZIP package contains an unsafe path.</source>
        <translation>ZIP パッケージに安全でないパスが含まれています。</translation>
    </message>
    <message>
        <location line="+2"/>
        <location line="+23"/>
        <source>There is not enough disk space to install.</source>
        <translation>インストールに必要なディスク領域が不足しています。</translation>
    </message>
    <message>
        <location line="-21"/>
        <source>Unable to create the installation directory.</source>
        <translation>インストール フォルダーを作成できません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to write an installation file.</source>
        <translation>インストール ファイルを書き込めません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to extract the downloaded ZIP package.</source>
        <translation>ダウンロードした ZIP パッケージを展開できません。</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>The bundled Brisa-Linker payload is missing.</source>
        <translation>同梱の Brisa-Linker パッケージが見つかりません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled Brisa-Linker payload is invalid.</source>
        <translation>同梱の Brisa-Linker パッケージが無効です。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The bundled payload contains a directory link.</source>
        <translation>同梱パッケージにフォルダーのリンクが含まれています。</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Unable to create the bundled payload directory.</source>
        <translation>同梱パッケージ用のフォルダーを作成できません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to copy the bundled Brisa-Linker payload.</source>
        <translation>同梱の Brisa-Linker パッケージをコピーできません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to prepare the bundled Brisa-Linker payload.</source>
        <translation>同梱の Brisa-Linker パッケージを準備できません。</translation>
    </message>
</context>
<context>
    <name>DownloadFailureDialog</name>
    <message>
        <location filename="../../src/ui/download_failure_dialog.cpp" line="+13"/>
        <location line="+5"/>
        <source>Download failed</source>
        <translation>ダウンロードに失敗しました</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>必要なファイルをダウンロードできませんでした。再試行するか、完全なパッケージをダウンロードしてください。</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Download full package</source>
        <translation>完全なパッケージをダウンロード</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The full package link is unavailable.</source>
        <translation>完全なパッケージのリンクは利用できません。</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Need help? Contact</source>
        <translation>お困りの場合のお問い合わせ先:</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Cancel</source>
        <translation>キャンセル</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Retry</source>
        <translation>再試行</translation>
    </message>
</context>
<context>
    <name>DownloadManager</name>
    <message>
        <location filename="../../src/download/download_manager.cpp" line="+279"/>
        <source>Unable to download the version manifest: %1</source>
        <translation>バージョン情報をダウンロードできません: %1</translation>
    </message>
    <message>
        <location line="+9"/>
        <location line="+286"/>
        <location line="+19"/>
        <source>No download progress was made for 20 seconds.</source>
        <translation>20 秒間ダウンロードが進みませんでした。</translation>
    </message>
    <message>
        <location line="-345"/>
        <source>The version manifest is invalid: %1</source>
        <translation>バージョン情報が無効です: %1</translation>
    </message>
    <message>
        <location line="-9"/>
        <source>The version manifest does not carry a valid signature of the publisher.</source>
        <translation>バージョン情報に発行元の有効な署名がありません。</translation>
    </message>
    <message>
        <location line="+65"/>
        <source>Unable to create the download directory.</source>
        <translation>ダウンロード用フォルダーを作成できません。</translation>
    </message>
    <message>
        <location line="+109"/>
        <source>Unable to write a download chunk.</source>
        <translation>ダウンロードの一部を書き込めません。</translation>
    </message>
    <message>
        <location line="+63"/>
        <source>The download server does not support ranged requests.</source>
        <translation>ダウンロード サーバーが範囲指定の要求に対応していません。</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>A download chunk failed: %1</source>
        <translation>ダウンロードの一部に失敗しました: %1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>A download chunk has an unexpected size.</source>
        <translation>ダウンロードの一部のサイズが想定と異なります。</translation>
    </message>
    <message>
        <location filename="../../src/download/package_assembly.cpp" line="+21"/>
        <source>The combined package failed verification.</source>
        <translation>結合したパッケージの検証に失敗しました。</translation>
    </message>
    <message>
        <location line="-4"/>
        <source>Unable to create the combined package.</source>
        <translation>結合したパッケージを作成できません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to read a downloaded chunk.</source>
        <translation>ダウンロードした一部を読み取れません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to combine the downloaded chunks.</source>
        <translation>ダウンロードした各部分を結合できません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the combined package.</source>
        <translation>結合したパッケージを書き込めません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unable to finalize the downloaded package.</source>
        <translation>ダウンロードしたパッケージを完成できません。</translation>
    </message>
</context>
<context>
    <name>InstallationFlow</name>
    <message>
        <location filename="../../src/ui/installation_flow.cpp" line="+143"/>
        <source>%1 MB/s</source>
        <translation>%1 MB/秒</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 KB/s</source>
        <translation>%1 KB/秒</translation>
    </message>
    <message>
        <location line="+33"/>
        <source>Invalid installation location</source>
        <translation>インストール先が無効です</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Choose a valid installation location.</source>
        <translation>有効なインストール先を選択してください。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>インストール先にフォルダーのリンクを含めることはできません。</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>Brisa-Linker はこのシステムの場所にはインストールできません。</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>既存のアプリケーションの実行ファイルを識別できません。古いファイルは削除されていません。
%1</translation>
    </message>
    <message>
        <location line="+19"/>
        <source>Brisa-Linker is already installed</source>
        <translation>Brisa-Linker は既にインストールされています</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is already installed in:
%1

Install it in the new location instead? The files in the old location are kept.</source>
        <translation>Brisa-Linker は次の場所に既にインストールされています:
%1

新しい場所にインストールしますか? 以前の場所のファイルはそのまま残ります。</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Install here</source>
        <translation>ここにインストール</translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+176"/>
        <source>Cancel</source>
        <translation>キャンセル</translation>
    </message>
    <message>
        <location line="-148"/>
        <source>Installation in progress</source>
        <translation>インストール中です</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>別のインストーラーが Brisa-Linker をインストールしています。このウィンドウを開いたままにして、完了後にもう一度お試しください。</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Preparing...</source>
        <translation>準備中...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Preparing download...</source>
        <translation>ダウンロードの準備中...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Downloading...</source>
        <translation>ダウンロード中...</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Downloading... %1%</source>
        <translation>ダウンロード中... %1%</translation>
    </message>
    <message>
        <location line="+41"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>一時インストール フォルダーを準備できません。</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Extracting...</source>
        <translation>展開中...</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Installing...</source>
        <translation>インストール中...</translation>
    </message>
    <message>
        <location line="+46"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker が実行中です</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>次のアプリケーションがインストール ファイルを使用しています:
%1

これらは直ちに強制終了されます。保存していない作業は失われる可能性があります。インストールを続行しますか?</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Force-close applications</source>
        <translation>強制終了する</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Closing running applications...</source>
        <translation>実行中のアプリケーションを終了しています...</translation>
    </message>
    <message>
        <location line="+18"/>
        <location line="+104"/>
        <source>Installation failed</source>
        <translation>インストールに失敗しました</translation>
    </message>
    <message>
        <location line="-93"/>
        <source>Creating shortcuts...</source>
        <translation>ショートカットを作成しています...</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Installation complete</source>
        <translation>インストールが完了しました</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Done</source>
        <translation>完了</translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Earlier installation migrated</source>
        <translation>以前のインストールを移行しました</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Brisa-Linker を起動できません</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker はインストールされましたが、起動できませんでした。デスクトップのショートカットから開いてください。</translation>
    </message>
    <message>
        <location line="+98"/>
        <source>Install</source>
        <translation>インストール</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Exit installation?</source>
        <translation>インストールを終了しますか?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>インストールを終了してもよろしいですか?</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Installation is finishing</source>
        <translation>インストールを完了しています</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>システムの構成が始まっているため、この手順は安全に取り消せません。ウィンドウは閉じ、インストールはバックグラウンドで完了します。</translation>
    </message>
    <message>
        <location line="-71"/>
        <source>Unable to open the link</source>
        <translation>リンクを開けません</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The link could not be opened. Its address was copied to the clipboard:
%1</source>
        <translation>リンクを開けませんでした。アドレスをクリップボードにコピーしました:
%1</translation>
    </message>
</context>
<context>
    <name>InstallerFinalizer</name>
    <message>
        <location filename="translation_texts.cpp" line="+25"/>
        <source>Unable to close the existing Brisa-Linker processes.</source>
        <translation>実行中の Brisa-Linker のプロセスを終了できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>A Brisa-Linker process is still using installation files. Close it and retry.</source>
        <translation>Brisa-Linker のプロセスがインストール ファイルを使用中です。終了してから再試行してください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation directory is unsafe.</source>
        <translation>インストール先フォルダーは安全ではありません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to recover the previous migration.
%1</source>
        <translation>前回の移行を復旧できませんでした。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation cancelled.</source>
        <translation>インストールはキャンセルされました。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation package is incomplete or incompatible. Download a current installer and retry. No installed files were replaced.</source>
        <translation>インストール パッケージが不完全か、互換性がありません。最新のインストーラーをダウンロードして再試行してください。インストール済みのファイルは置き換えられていません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to install the uninstaller.</source>
        <translation>アンインストーラーをインストールできませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to write the OBS path configuration.</source>
        <translation>OBS のパス設定を書き込めませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the uninstall data file.</source>
        <translation>アンインストール データ ファイルを作成できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare installation recovery.
%1</source>
        <translation>インストールの復旧準備ができませんでした。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the legacy migration.
%1</source>
        <translation>旧バージョンからの移行を準備できませんでした。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the installation backup.</source>
        <translation>インストールのバックアップを準備できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to back up the existing installation.</source>
        <translation>既存のインストールをバックアップできませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>既存のアプリケーションの実行ファイルを識別できません。古いファイルは削除されていません。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Updating existing files...</source>
        <translation>既存のファイルを更新しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to replace installation files.</source>
        <translation>インストール ファイルを置き換えられませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the application URL protocol. Windows error: %1.</source>
        <translation>アプリケーションの URL プロトコルを登録できませんでした。Windows エラー: %1。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The application executable is missing after extraction.</source>
        <translation>展開後にアプリケーションの実行ファイルが見つかりません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>ショートカットを作成しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the desktop shortcut.</source>
        <translation>デスクトップのショートカットを作成できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to create the Start Menu shortcuts.</source>
        <translation>スタート メニューのショートカットを作成できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Registering application...</source>
        <translation>アプリケーションを登録しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to register the uninstaller.</source>
        <translation>アンインストーラーを登録できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finishing installation...</source>
        <translation>インストールを完了しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to commit the legacy migration.
%1</source>
        <translation>旧バージョンからの移行を確定できませんでした。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing system maintenance service...</source>
        <translation>システム メンテナンス サービスをインストールしています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring system...</source>
        <translation>システムを構成しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 32-bit virtual camera...</source>
        <translation>32 ビット仮想カメラをインストールしています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing 64-bit virtual camera...</source>
        <translation>64 ビット仮想カメラをインストールしています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Configuring application...</source>
        <translation>アプリケーションを構成しています...</translation>
    </message>
</context>
<context>
    <name>InstallerStartup</name>
    <message>
        <location line="-43"/>
        <source>Automatic update was not started. Use Custom to choose the installation location and click Install.</source>
        <translation>自動更新は開始されませんでした。[カスタム] でインストール先を選び、[インストール] をクリックしてください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to identify the signed-in desktop user. Open the installer from your Windows desktop.</source>
        <translation>サインイン中のデスクトップ ユーザーを特定できませんでした。Windows のデスクトップからインストーラーを開いてください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No writable installer cache/log directory is available. Check TEMP and LocalAppData permissions.</source>
        <translation>書き込み可能なインストーラーのキャッシュ/ログ フォルダーがありません。TEMP と LocalAppData のアクセス許可を確認してください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose installation location</source>
        <translation>インストール先の選択</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator permission is required to install the system maintenance service. Please run the installer as administrator.</source>
        <translation>システム メンテナンス サービスのインストールには管理者権限が必要です。インストーラーを管理者として実行してください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Administrator authorization was cancelled or did not complete (Windows error 1223). Click Retry and choose Yes in the Windows permission dialog.</source>
        <translation>管理者の承認がキャンセルされたか、完了しませんでした (Windows エラー 1223)。[再試行] をクリックし、Windows の許可ダイアログで [はい] を選んでください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Windows could not start the installer with administrator permission. Windows error %1: %2</source>
        <translation>Windows は管理者権限でインストーラーを起動できませんでした。Windows エラー %1: %2</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Click Retry to request administrator permission again, or Cancel to close the installer.</source>
        <translation>[再試行] をクリックすると管理者権限をもう一度要求します。[キャンセル] をクリックするとインストーラーを閉じます。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>More than one Brisa-Linker installation was found. Select the installation location manually.
%1</source>
        <translation>Brisa-Linker のインストールが複数見つかりました。インストール先を手動で選択してください。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Some recorded installations could not be verified. Select the installation location manually.
%1</source>
        <translation>記録されている一部のインストールを確認できませんでした。インストール先を手動で選択してください。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The previous Brisa-Linker installation was not found. Select the installation location manually.</source>
        <translation>以前の Brisa-Linker のインストールが見つかりませんでした。インストール先を手動で選択してください。</translation>
    </message>
</context>
<context>
    <name>LegacyMigration</name>
    <message>
        <location filename="../../src/journal/legacy_migration_cleanup.cpp" line="+148"/>
        <location filename="translation_texts.cpp" line="+75"/>
        <source>Previous OBS/Pellacore files were preserved at:
%1</source>
        <translation>以前の OBS/Pellacore のファイルは次の場所に保存されています:
%1</translation>
    </message>
    <message>
        <location line="+14"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Some old files could not be removed and will be retried on the next installation:
%1</source>
        <translation>一部の古いファイルを削除できませんでした。次回のインストール時に再試行します:
%1</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+123"/>
        <source>Minimize</source>
        <translation>最小化</translation>
    </message>
    <message>
        <location line="-61"/>
        <location line="+65"/>
        <source>Close</source>
        <translation>閉じる</translation>
    </message>
    <message>
        <location line="-70"/>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>No</source>
        <translation>いいえ</translation>
    </message>
    <message>
        <location line="+87"/>
        <source>Launch Brisa-Linker when installation is complete</source>
        <translation>インストール完了後に Brisa-Linker を起動する</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Custom</source>
        <translation>カスタム</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>Install location</source>
        <translation>インストール先</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Edit the installation location or choose a folder</source>
        <translation>インストール先を編集するか、フォルダーを選択してください</translation>
    </message>
    <message>
        <location line="+3"/>
        <location line="+164"/>
        <source>Install to %1</source>
        <translation>%1 にインストール</translation>
    </message>
    <message>
        <location line="-159"/>
        <source>Browse folders</source>
        <translation>フォルダーを参照</translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+211"/>
        <source>Required: --</source>
        <translation>必要な容量: --</translation>
    </message>
    <message>
        <location line="-209"/>
        <location line="+287"/>
        <source>Available: --</source>
        <translation>空き容量: --</translation>
    </message>
    <message>
        <location line="-247"/>
        <source>Preparing download...</source>
        <translation>ダウンロードを準備しています...</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+121"/>
        <source>Install</source>
        <translation>インストール</translation>
    </message>
    <message>
        <location line="-96"/>
        <source>%1 MB</source>
        <translation>%1 MB</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 GB</source>
        <translation>%1 GB</translation>
    </message>
    <message>
        <location line="+84"/>
        <source>Hide installation location</source>
        <translation>インストール先を隠す</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Show installation location</source>
        <translation>インストール先を表示</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Done</source>
        <translation>完了</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Required: %1</source>
        <translation>必要な容量: %1</translation>
    </message>
    <message>
        <location line="+59"/>
        <source>Choose installation location</source>
        <translation>インストール先の選択</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Available: %1</source>
        <translation>空き容量: %1</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="-39"/>
        <source>Invalid installation location</source>
        <translation>無効なインストール先</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The installation location cannot contain directory links.</source>
        <translation>インストール先にディレクトリ リンクを含めることはできません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker cannot be installed in this system location.</source>
        <translation>このシステムの場所には Brisa-Linker をインストールできません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose a valid installation location.</source>
        <translation>有効なインストール先を選択してください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The existing application executable cannot be identified. No old files were removed.
%1</source>
        <translation>既存のアプリケーションの実行ファイルを識別できません。古いファイルは削除されていません。
%1</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation in progress</source>
        <translation>インストール中</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Another installer is currently installing Brisa-Linker. You can keep this window open and try again when it finishes.</source>
        <translation>別のインストーラーが Brisa-Linker をインストールしています。このウィンドウを開いたままにして、終了後にもう一度お試しください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Preparing...</source>
        <translation>準備中...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to prepare the temporary installation directory.</source>
        <translation>一時インストール フォルダーを準備できませんでした。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Extracting...</source>
        <translation>展開しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installing...</source>
        <translation>インストール中...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker is running</source>
        <translation>Brisa-Linker は実行中です</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>These applications are using the installation files:
%1

They will be force-closed immediately; unsaved work may be lost. Continue installing?</source>
        <translation>次のアプリケーションがインストール ファイルを使用しています:
%1

これらはただちに強制終了され、保存されていない作業は失われる可能性があります。インストールを続行しますか?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Force-close applications</source>
        <translation>アプリケーションを強制終了</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="-456"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Cancel</source>
        <translation>キャンセル</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Closing running applications...</source>
        <translation>実行中のアプリケーションを終了しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation failed</source>
        <translation>インストールに失敗しました</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Creating shortcuts...</source>
        <translation>ショートカットを作成しています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading...</source>
        <translation>ダウンロードしています...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading... %1%</source>
        <translation>ダウンロードしています... %1%</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Installation complete</source>
        <translation>インストールが完了しました</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unable to start Brisa-Linker</source>
        <translation>Brisa-Linker を起動できません</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Brisa-Linker was installed, but it could not be started. You can open it from the desktop shortcut.</source>
        <translation>Brisa-Linker はインストールされましたが、起動できませんでした。デスクトップのショートカットから開くことができます。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download failed</source>
        <translation>ダウンロードに失敗しました</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>We couldn&apos;t download the required files. Retry or download the full package.</source>
        <translation>必要なファイルをダウンロードできませんでした。再試行するか、完全なパッケージをダウンロードしてください。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Download full package</source>
        <translation>完全なパッケージをダウンロード</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The full package link is unavailable.</source>
        <translation>完全なパッケージのリンクは利用できません。</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Need help? Contact</source>
        <translation>お困りの場合の連絡先:</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Retry</source>
        <translation>再試行</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Exit installation?</source>
        <translation>インストールを終了しますか?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to exit the installation?</source>
        <translation>インストールを終了してもよろしいですか?</translation>
    </message>
    <message>
        <location filename="../../src/ui/main_window.cpp" line="+1"/>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Yes</source>
        <translation>はい</translation>
    </message>
    <message>
        <location filename="translation_texts.cpp" line="+1"/>
        <source>Installation is finishing</source>
        <translation>インストールを完了しています</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>System configuration has started, so this step cannot be safely rolled back. The window will close while installation finishes in the background.</source>
        <translation>システムの構成が始まっているため、この手順を安全に元に戻すことはできません。インストールはバックグラウンドで完了し、ウィンドウは閉じられます。</translation>
    </message>
</context>
</TS>
