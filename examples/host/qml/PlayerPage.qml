import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// Plays any file that has sound.
HostPage {
    id: page

    property string file
    property var tags: ({})
    property url cover

    function open(path) {
        page.failure = ""
        if (!player.open(path)) {
            file = ""
            page.failure = qsTr("“%1” has no sound that can be played.").arg(hostFiles.name(path))
            return
        }
        file = path
        tags = player.tags
        cover = player.cover
        player.toggle()
    }

    title: qsTr("Player")
    hint: qsTr("Play any sound, as fast as you like")
    takesFiles: true
    onFileDropped: open(path)

    actions: OpenButton {
        objectName: "openSound"
        nameFilters: [qsTr("Sound and films (*.mp3 *.aac *.m4a *.m4r *.ogg *.opus *.wav *.flac *.ape *.ac3 *.wma *.mp2 *.mp4 *.mkv *.mov *.webm)"), qsTr("All files (*)")]
        onChosen: page.open(path)
    }

    Connections {
        target: player

        function onFailed() {
            if (page.visible && player.source === page.file)
                page.failure = qsTr("The sound of “%1” ended early: the file is damaged.").arg(hostFiles.name(page.file))
        }
    }

    Card {
        Layout.fillWidth: true
        Layout.fillHeight: true

        EmptyState {
            visible: page.file === ""
            icon: "qrc:/host/icons/player.svg"
            text: qsTr("Open a file, or drop one here.")
        }

        ColumnLayout {
            anchors.fill: parent
            visible: page.file !== ""
            spacing: 12

            Item {
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.topMargin: 10

                Rectangle {
                    anchors.centerIn: parent
                    width: Math.min(parent.width, parent.height, 360)
                    height: width
                    radius: 6
                    color: Universal.baseLowColor

                    Image {
                        objectName: "cover"
                        anchors.fill: parent
                        fillMode: Image.PreserveAspectFit
                        cache: false
                        source: page.cover
                    }
                    EmptyState {
                        visible: page.cover == ""
                        icon: "qrc:/host/icons/player.svg"
                    }
                }
            }
            Label {
                objectName: "soundTitle"
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                font.pixelSize: 20
                elide: Text.ElideMiddle
                text: page.tags.Name || hostFiles.name(page.file)
            }
            Label {
                Layout.fillWidth: true
                Layout.bottomMargin: 6
                horizontalAlignment: Text.AlignHCenter
                color: Universal.baseMediumColor
                elide: Text.ElideRight
                text: [page.tags.Artist, page.tags.Album].filter(part => part).join(" · ") || qsTr("Unknown artist")
            }
        }
    }

    Transport {
        objectName: "soundTransport"
        Layout.fillWidth: true
        file: page.file
    }
}
